#include "platform/StandardOutput.h"
#include "platform/common/WideOutputBuffer.h"

#include <gtest/gtest.h>

#include <iostream>
#include <ostream>
#include <vector>

using Tessel::Bridge::Platform::WideOutputBuffer;
using Tessel::Bridge::Platform::WideStandardOutput;

namespace {

struct Recorder {
    std::vector<std::wstring> writes;
    WideOutputBuffer::Sink Sink()
    {
        return [this](std::wstring_view text) { writes.emplace_back(text); };
    }
};

} // namespace

TEST(WideOutputBuffer, HandsTheTextToTheSinkOnEachFlush)
{
    Recorder recorder;
    WideOutputBuffer buffer(recorder.Sink());
    std::wostream out(&buffer);
    out << L"C\u00E4mera " << 42;
    EXPECT_TRUE(recorder.writes.empty());
    out << std::endl;
    out << L'x' << std::flush;
    out.flush(); // nothing new: no empty write
    EXPECT_EQ(recorder.writes, (std::vector<std::wstring>{L"C\u00E4mera 42\n", L"x"}));
}

TEST(WideOutputBuffer, WritesWhatIsLeftWhenDestroyed)
{
    Recorder recorder;
    {
        WideOutputBuffer buffer(recorder.Sink());
        std::wostream out(&buffer);
        out << L"pending";
    }
    EXPECT_EQ(recorder.writes, std::vector<std::wstring>{L"pending"});
}

TEST(WideStandardOutput, GivesWcoutItsBufferBack)
{
    std::wstreambuf* const before = std::wcout.rdbuf();
    {
        const WideStandardOutput output;
        EXPECT_NE(std::wcout.rdbuf(), before);
    }
    EXPECT_EQ(std::wcout.rdbuf(), before);
}
