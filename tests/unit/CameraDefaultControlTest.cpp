// The default controllers over an in-memory defaults store: byte layouts
// against hand-computed payloads, the lock protocol and the failure codes.
#include "CameraDefaultControl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

using namespace Tessel::Bridge::Server::Services::Kestrel;
using namespace Tessel::Bridge::Platform;
using Bytes = std::vector<unsigned char>;

namespace {

struct FakeEntry final : ICameraControlDefaults {
    Bytes control, data;
    int locks = 0, unlocks = 0;
    bool nullData = false;
    HResult LockControlData(void** c, std::uint32_t* cs, void** d, std::uint32_t* ds) override
    {
        ++locks;
        *c = control.data();
        *cs = static_cast<std::uint32_t>(control.size());
        *d = nullData ? nullptr : data.data();
        *ds = static_cast<std::uint32_t>(data.size());
        return 0;
    }
    HResult UnlockControlData() override { return ++unlocks, 0; }
};

// Adds entries of the asked sizes holding the header that names them; records
// how each was asked for.
struct FakeCollection final : ICameraControlDefaultsCollection {
    std::vector<std::shared_ptr<FakeEntry>> entries;
    std::vector<std::string> requests;
    std::uint32_t GetControlCount() override { return static_cast<std::uint32_t>(entries.size()); }
    HResult GetControl(std::uint32_t index, std::shared_ptr<ICameraControlDefaults>& out) override
    {
        out = entries.at(index);
        return 0;
    }
    HResult GetOrAddExtendedControl(std::uint32_t type, std::uint32_t id, std::uint32_t stream, std::uint32_t size,
                                    std::shared_ptr<ICameraControlDefaults>& out) override
    {
        requests.push_back("extended " + std::to_string(type) + " " + std::to_string(id) + " " +
                           std::to_string(stream) + " " + std::to_string(size));
        out = Add(kPropSetExtendedCameraControl, id, 24, size);
        return 0;
    }
    HResult GetOrAddControl(std::uint32_t type, const Guid& set, std::uint32_t id, std::uint32_t controlSize,
                            std::uint32_t dataSize, std::shared_ptr<ICameraControlDefaults>& out) override
    {
        requests.push_back("classic " + std::to_string(type) + " " + std::to_string(set.data1) + " " +
                           std::to_string(id) + " " + std::to_string(controlSize) + " " + std::to_string(dataSize));
        out = Add(set, id, controlSize, dataSize);
        return 0;
    }
    std::shared_ptr<FakeEntry> Add(const Guid& set, std::uint32_t id, std::size_t controlSize, std::size_t dataSize)
    {
        for (const auto& entry : entries) {
            if (entry->control.size() >= 24 && std::memcmp(entry->control.data(), &set, 16) == 0 &&
                std::memcmp(entry->control.data() + 16, &id, 4) == 0) {
                return entry;
            }
        }
        auto entry = std::make_shared<FakeEntry>();
        entry->control.resize(controlSize);
        entry->data.resize(dataSize);
        std::memcpy(entry->control.data(), &set, std::min<std::size_t>(16, controlSize));
        if (controlSize >= 20) std::memcpy(entry->control.data() + 16, &id, 4);
        entries.push_back(entry);
        return entry;
    }
};

struct FakeStore final : ICameraDefaultsPlatform {
    std::shared_ptr<FakeCollection> collection = std::make_shared<FakeCollection>();
    HResult failCreate = 0, failLoad = 0;
    int saves = 0;
    std::wstring link;

    struct Attributes final : ICameraAttributes {
        FakeStore& store;
        explicit Attributes(FakeStore& s) : store(s) {}
        HResult SetString(const Guid& key, const std::wstring& value) override
        {
            if (key == kVideoCaptureSymbolicLink) store.link = value;
            return 0;
        }
    };
    struct Manager final : ICameraConfigurationManager {
        FakeStore& store;
        explicit Manager(FakeStore& s) : store(s) {}
        HResult LoadDefaults(ICameraAttributes&, std::shared_ptr<ICameraControlDefaultsCollection>& out) override
        {
            if (store.failLoad < 0) return store.failLoad;
            out = store.collection;
            return 0;
        }
        HResult SaveDefaults(ICameraControlDefaultsCollection&) override { return ++store.saves, 0; }
    };
    HResult CreateConfigurationManager(std::unique_ptr<ICameraConfigurationManager>& out) override
    {
        if (failCreate < 0) return failCreate;
        out = std::make_unique<Manager>(*this);
        return 0;
    }
    HResult CreateAttributes(std::uint32_t, std::unique_ptr<ICameraAttributes>& out) override
    {
        out = std::make_unique<Attributes>(*this);
        return 0;
    }
};

// Little-endian bytes, written out by hand.
Bytes U32(std::uint32_t v)
{
    return {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v >> 16),
            static_cast<unsigned char>(v >> 24)};
}
Bytes Join(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}
Bytes Slice(const Bytes& bytes, std::size_t from, std::size_t count)
{
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(from + count));
}

HResult CodeOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const ResultException& e) {
        char hex[16];
        std::snprintf(hex, sizeof hex, "): 0x%08X", static_cast<unsigned>(e.Code()));
        EXPECT_THAT(e.what(),
                    ::testing::AllOf(::testing::StartsWith("CameraDefaultControl("), ::testing::EndsWith(hex)));
        return e.Code();
    }
    return 0;
}

class DefaultControllers : public ::testing::Test {
protected:
    std::shared_ptr<DefaultController> Controller(ControlKind kind, std::uint32_t id)
    {
        return DefaultController::Create(std::make_shared<DefaultControlManager>(store, L"camera-link"), kind, id);
    }
    FakeEntry& Only() { return *store.collection->entries.at(0); }

    FakeStore store;
};

} // namespace

// The saved bytes of brightness and zoom are compared whole by the process
// runs on the emulated PC; here, what they cannot reach.
TEST_F(DefaultControllers, VideoProcAmpReadsTheControlsValueWhateverTheDataHolds)
{
    const std::int32_t value = 37;
    Controller(ControlKind::VideoProcAmp, 0)->SetDefaultValue(&value);
    EXPECT_EQ(store.link, L"camera-link");
    EXPECT_EQ(Only().unlocks, 1);
    Only().data[24] = 99;
    std::int32_t read = 0;
    EXPECT_TRUE(Controller(ControlKind::VideoProcAmp, 0)->GetDefaultValue(read));
    EXPECT_EQ(read, 37);
}

TEST_F(DefaultControllers, ExtendedControlsKeepTheValueInTheHeaderFlags)
{
    const std::int32_t minusOne = -1;
    Controller(ControlKind::ExtendedCameraControl, 41)->SetDefaultValue(&minusOne);
    const std::int32_t on = 1;
    Controller(ControlKind::ExtendedCameraControl, 43)->SetDefaultValue(&on);
    EXPECT_THAT(store.collection->requests,
                ::testing::ElementsAre("extended 1 41 4294967295 40", "extended 1 43 4294967295 48"));
    FakeEntry& blur = *store.collection->entries[0];
    EXPECT_EQ(Slice(blur.control, 20, 4), U32(2));
    EXPECT_EQ(Slice(blur.data, 16, 8), Bytes(8, 0xFF)); // sign-extended
    EXPECT_EQ(Slice(blur.data, 0, 16), Bytes(16, 0));   // PinId, Size, Version left alone
    EXPECT_EQ(Slice(store.collection->entries[1]->data, 16, 8), Join({U32(1), U32(0)}));

    std::int32_t read = 5;
    EXPECT_TRUE(Controller(ControlKind::ExtendedCameraControl, 41)->GetDefaultValue(read));
    EXPECT_EQ(read, -1);
}

TEST_F(DefaultControllers, ZoomRoundsItsPercentageUp)
{
    // Min 100 and Max 400 left by the platform: 33 % rounds up to 199, and to 200 of 401.
    auto zoom = Controller(ControlKind::ExtendedCameraControl, 24);
    const std::int32_t half = 50;
    zoom->SetDefaultValue(&half);
    FakeEntry& entry = Only();
    std::memcpy(entry.data.data() + 36, U32(100).data(), 4);
    std::memcpy(entry.data.data() + 40, U32(400).data(), 4);
    const std::int32_t third = 33;
    zoom->SetDefaultValue(&third);
    EXPECT_EQ(Slice(entry.data, 48, 4), U32(199));
    std::memcpy(entry.data.data() + 40, U32(401).data(), 4);
    zoom->SetDefaultValue(&third);
    EXPECT_EQ(Slice(entry.data, 48, 4), U32(200));
}

TEST_F(DefaultControllers, AZoomRangeOfZeroWidthEndsWithTheDivideByZeroCode)
{
    const std::int32_t half = 50;
    auto zoom = Controller(ControlKind::ExtendedCameraControl, 24);
    zoom->SetDefaultValue(&half); // a fresh entry: Min = Max = 0, raw 0
    EXPECT_EQ(Slice(Only().data, 48, 4), U32(0));
    std::int32_t read = 0;
    EXPECT_EQ(CodeOf([&] { zoom->GetDefaultValue(read); }), kIntegerDivideByZero);
}

TEST_F(DefaultControllers, ReadingMatchesIdAndAllOfTheSetAndPassesOverShortEntriesStillLocked)
{
    std::int32_t value = 7;
    EXPECT_FALSE(Controller(ControlKind::VideoProcAmp, 0)->GetDefaultValue(value));
    EXPECT_EQ(value, 7);

    auto shortEntry = store.collection->Add(kPropSetVideoProcAmp, 0, 20, 40);
    auto otherSet = store.collection->Add(kPropSetCameraControl, 0, 40, 40);
    otherSet->control[24] = 11;
    auto wanted = store.collection->Add(kPropSetVideoProcAmp, 0, 40, 40);
    wanted->control[24] = 22;
    store.collection->Add(kPropSetVideoProcAmp, 0, 40, 40); // found already: never looked at

    EXPECT_TRUE(Controller(ControlKind::VideoProcAmp, 0)->GetDefaultValue(value));
    EXPECT_EQ(value, 22);
    EXPECT_EQ(shortEntry->locks, 1);
    EXPECT_EQ(shortEntry->unlocks, 0);
    EXPECT_EQ(otherSet->unlocks, 1);
    EXPECT_EQ(wanted->unlocks, 1);
    EXPECT_EQ(store.saves, 0);
}

TEST_F(DefaultControllers, FailuresCarryTheirCodesAndSaveNothing)
{
    const std::int32_t value = 1;
    // Buffers smaller than the layout: refused before any byte is touched,
    // and the entry is unlocked all the same.
    auto small = store.collection->Add(kPropSetExtendedCameraControl, 24, 24, 56);
    small->data.assign(56, 0xAB);
    EXPECT_EQ(CodeOf([&] { Controller(ControlKind::ExtendedCameraControl, 24)->SetDefaultValue(&value); }),
              kUnexpected);
    EXPECT_EQ(small->data, Bytes(56, 0xAB));
    EXPECT_EQ(small->unlocks, 1);

    small->nullData = true;
    EXPECT_EQ(CodeOf([&] { Controller(ControlKind::ExtendedCameraControl, 24)->SetDefaultValue(&value); }),
              kOutOfMemory);
    EXPECT_EQ(store.saves, 0);

    store.failLoad = kAccessDenied;
    EXPECT_EQ(CodeOf([&] { Controller(ControlKind::VideoProcAmp, 0)->SetDefaultValue(&value); }), kAccessDenied);
    store.failCreate = ToHResult(0x80040154);
    EXPECT_EQ(CodeOf([&] { Controller(ControlKind::VideoProcAmp, 0); }), ToHResult(0x80040154));
}
