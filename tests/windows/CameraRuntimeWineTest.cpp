// The Windows camera runtime against the capture stand-ins of the prefix
// (testbed/CaptureFactories.cpp), for what KestrelTool's output cannot show.
#include "platform/CameraRuntime.h"
#include "support/ScopedEnvironment.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>

using namespace Tessel::Bridge::Platform;
using namespace KestrelTest;

namespace {

HResult CodeOf(const std::function<void()>& call)
{
    try {
        call();
    } catch (const ResultException& failure) {
        return failure.Code();
    }
    return 0;
}

} // namespace

TEST(CameraRuntimeWine, ReportsWhatTheDeviceReportsAndClosesIt)
{
    TempDirectory dir;
    const ScopedEnvironment cameras("KESTREL_TEST_CAMERAS", (dir / "cameras").string());
    std::ofstream(dir / "cameras") << "plain none 0 0 0 0 0 0 0 0 0 1 4\n"
                                      "stopped 1 cancel 0 0 0 0 0 0 0 0 0 0\n"
                                      "broken 1 C00D3704 0 0 0 0 0 0 0 0 0 0\n";
    const std::shared_ptr<ICameraRuntime> runtime = CreateCameraRuntime();
    const std::vector<VideoCaptureDevice> devices = runtime->FindVideoCaptureDevices();
    ASSERT_EQ(devices.size(), 3u);
    EXPECT_EQ(devices[0].panel, std::nullopt);
    EXPECT_EQ(devices[1].panel, Panel::Front);

    const std::shared_ptr<ICameraCapture> capture = runtime->OpenForVideo(L"plain");
    EXPECT_EQ(capture->VideoDeviceId(), L"plain");
    // The two enumerations number their statuses differently.
    EXPECT_EQ(capture->GetDevicePropertyStatus(L"x, 41"), DevicePropertyStatus::UnknownFailure);
    EXPECT_EQ(capture->GetDevicePropertyStatus(L"x, 43"), DevicePropertyStatus::DeviceNotAvailable);
    // The device has no brightness to read, so the starting value comes back.
    EXPECT_EQ(capture->TryGetBrightnessValue(), -1.0);
    capture->Close();
    // The stand-in refuses a second close with RO_E_CLOSED.
    EXPECT_EQ(CodeOf([&] { capture->Close(); }), ToHResult(0x80000013));

    EXPECT_EQ(CodeOf([&] { runtime->OpenForVideo(L"stopped"); }), kCanceled);
    // A failed open finishes later, on another thread, with the device's code.
    EXPECT_EQ(CodeOf([&] { runtime->OpenForVideo(L"broken"); }), ToHResult(0xC00D3704));
}
