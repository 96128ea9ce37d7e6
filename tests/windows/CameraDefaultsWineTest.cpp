// The camera defaults controllers over the real platform: COM activation of the
// configuration manager (the test bed's server registered in the prefix) and
// Wine's attribute store. Every check reloads through a new manager, so what is
// read is what the server persisted.
#include "CameraDefaultControl.h"
#include "support/ScopedEnvironment.h"
#include "support/TempDirectory.h"

#include <objbase.h>

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <vector>

namespace {

namespace Platform = Tessel::Bridge::Platform;
using namespace Tessel::Bridge::Server::Services::Kestrel;
using Bytes = std::vector<unsigned char>;

const std::wstring kLink = L"\\\\?\\USB#VID_045E&PID_0990&MI_00#6&2f0b5e8&0&0000#{e5323777-f976-4f5b-9b55-b94699c46e44}\\GLOBAL";

template <typename T>
T At(const Bytes& bytes, std::size_t offset)
{
    if (offset + sizeof(T) > bytes.size()) throw std::out_of_range("field past the buffer");
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

void Check(Platform::HResult code)
{
    Platform::ThrowIfFailed(code, __FILE__, __LINE__);
}

class CameraDefaultsWine : public testing::Test {
protected:
    std::shared_ptr<DefaultController> Controller(ControlKind kind, std::uint32_t id)
    {
        return DefaultController::Create(std::make_shared<DefaultControlManager>(*platform_, kLink), kind, id);
    }

    // The camera's stored defaults, loaded through the platform alone.
    std::shared_ptr<Platform::ICameraControlDefaultsCollection> Load(
        std::unique_ptr<Platform::ICameraConfigurationManager>& manager)
    {
        std::unique_ptr<Platform::ICameraAttributes> attributes;
        Check(platform_->CreateConfigurationManager(manager));
        Check(platform_->CreateAttributes(1, attributes));
        Check(attributes->SetString(Platform::kVideoCaptureSymbolicLink, kLink));
        std::shared_ptr<Platform::ICameraControlDefaultsCollection> collection;
        Check(manager->LoadDefaults(*attributes, collection));
        return collection;
    }

    // The control and data bytes of a stored entry, addressed as the product
    // addresses it (a null set: the extended set). Without edit the entry must
    // exist already; with it, a new entry is edited and saved.
    std::pair<Bytes, Bytes> Stored(const Guid* set, std::uint32_t id, std::uint32_t size, void (*edit)(void*) = nullptr)
    {
        std::unique_ptr<Platform::ICameraConfigurationManager> manager;
        const auto collection = Load(manager);
        const std::uint32_t count = collection->GetControlCount();
        std::shared_ptr<Platform::ICameraControlDefaults> entry;
        Check(set != nullptr ? collection->GetOrAddControl(Platform::kPostStartConfiguration, *set, id, size, size, entry)
                             : collection->GetOrAddExtendedControl(Platform::kPostStartConfiguration, id,
                                                                   Platform::kFilterStream, size, entry));
        EXPECT_EQ(collection->GetControlCount(), count + (edit != nullptr ? 1 : 0)) << "control " << id;
        void* control = nullptr;
        void* data = nullptr;
        std::uint32_t controlSize = 0;
        std::uint32_t dataSize = 0;
        Check(entry->LockControlData(&control, &controlSize, &data, &dataSize));
        if (edit != nullptr) edit(data);
        std::pair<Bytes, Bytes> bytes{Bytes(static_cast<unsigned char*>(control), static_cast<unsigned char*>(control) + controlSize),
                                      Bytes(static_cast<unsigned char*>(data), static_cast<unsigned char*>(data) + dataSize)};
        Check(entry->UnlockControlData());
        if (edit != nullptr) Check(manager->SaveDefaults(*collection));
        return bytes;
    }

    struct Apartment {
        HRESULT joined = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        ~Apartment()
        {
            if (SUCCEEDED(joined)) CoUninitialize();
        }
    } apartment_;
    KestrelTest::TempDirectory store_;
    KestrelTest::ScopedEnvironment storeVariable_{"KESTREL_TEST_CAMERA_DEFAULTS", store_.Path().string()};
    std::shared_ptr<Platform::ICameraDefaultsPlatform> platform_ = Platform::CreateCameraDefaultsPlatform();
};

TEST_F(CameraDefaultsWine, SwitchedExtendedControlsStoreTheHeaderFlags)
{
    ASSERT_TRUE(SUCCEEDED(apartment_.joined));
    // Background segmentation (blur) and the digital window (automatic framing).
    for (const auto& [id, size] : {std::pair<std::uint32_t, std::uint32_t>{41, 40}, {43, 48}}) {
        std::int32_t value = -1;
        EXPECT_FALSE(Controller(ControlKind::ExtendedCameraControl, id)->GetDefaultValue(value));
        for (const std::int32_t wanted : {1, 0}) {
            Controller(ControlKind::ExtendedCameraControl, id)->SetDefaultValue(&wanted);
            ASSERT_TRUE(Controller(ControlKind::ExtendedCameraControl, id)->GetDefaultValue(value));
            EXPECT_EQ(value, wanted);
            const auto [control, data] = Stored(nullptr, id, size);
            EXPECT_EQ(At<Guid>(control, 0), kPropSetExtendedCameraControl);
            EXPECT_EQ(At<std::uint32_t>(control, 16), id);
            EXPECT_EQ(At<std::uint32_t>(control, 20), 2u);
            ASSERT_EQ(data.size(), size);
            EXPECT_EQ(At<std::uint32_t>(data, 0), 1u);
            EXPECT_EQ(At<std::uint32_t>(data, 4), Platform::kFilterStream);
            EXPECT_EQ(At<std::uint32_t>(data, 8), size);
            EXPECT_EQ(At<std::uint64_t>(data, 16), static_cast<std::uint64_t>(wanted));
        }
    }
}

TEST_F(CameraDefaultsWine, VideoProcAmpStoresTheValueInBothBuffers)
{
    ASSERT_TRUE(SUCCEEDED(apartment_.joined));
    const std::int32_t brightness = 37;
    Controller(ControlKind::VideoProcAmp, 0)->SetDefaultValue(&brightness);
    std::int32_t value = -1;
    ASSERT_TRUE(Controller(ControlKind::VideoProcAmp, 0)->GetDefaultValue(value));
    EXPECT_EQ(value, 37);
    const auto [control, data] = Stored(&kPropSetVideoProcAmp, 0, 40);
    EXPECT_EQ(At<Guid>(control, 0), kPropSetVideoProcAmp);
    EXPECT_EQ(At<std::uint32_t>(control, 20), 2u);
    EXPECT_EQ(At<std::int32_t>(control, 24), 37);
    EXPECT_EQ(At<std::uint32_t>(control, 28), 2u);
    ASSERT_EQ(data.size(), 40u);
    EXPECT_TRUE(std::equal(control.begin(), control.begin() + 32, data.begin()));
}

TEST_F(CameraDefaultsWine, ZoomIsAPercentageOfTheStoredRange)
{
    ASSERT_TRUE(SUCCEEDED(apartment_.joined));
    Stored(nullptr, 24, 64, [](void* data) {
        const std::int32_t range[] = {100, 400};
        std::memcpy(static_cast<unsigned char*>(data) + 36, range, sizeof range);
    });
    const std::int32_t half = 50;
    Controller(ControlKind::ExtendedCameraControl, 24)->SetDefaultValue(&half);
    std::int32_t value = -1;
    ASSERT_TRUE(Controller(ControlKind::ExtendedCameraControl, 24)->GetDefaultValue(value));
    EXPECT_EQ(value, 50);
    const auto data = Stored(nullptr, 24, 64).second;
    EXPECT_EQ(At<std::uint32_t>(data, 4), Platform::kFilterStream);
    EXPECT_EQ(At<std::uint32_t>(data, 8), 64u);
    EXPECT_EQ(At<std::int32_t>(data, 36), 100);
    EXPECT_EQ(At<std::int32_t>(data, 40), 400);
    EXPECT_EQ(At<std::uint32_t>(data, 48), 250u);
}

TEST_F(CameraDefaultsWine, FailuresCarryThePlatformCodes)
{
    ASSERT_TRUE(SUCCEEDED(apartment_.joined));
    std::unique_ptr<Platform::ICameraConfigurationManager> manager;
    std::unique_ptr<Platform::ICameraAttributes> unnamed;
    Check(platform_->CreateConfigurationManager(manager));
    Check(platform_->CreateAttributes(1, unnamed));
    std::shared_ptr<Platform::ICameraControlDefaultsCollection> collection;
    EXPECT_EQ(manager->LoadDefaults(*unnamed, collection), Platform::kInvalidArgument);
    EXPECT_EQ(collection, nullptr);

    // A store the server cannot write: the product raises the server's own code.
    KestrelTest::ScopedEnvironment missing("KESTREL_TEST_CAMERA_DEFAULTS", (store_ / "missing").string());
    const std::int32_t brightness = 1;
    try {
        Controller(ControlKind::VideoProcAmp, 0)->SetDefaultValue(&brightness);
        ADD_FAILURE() << "the save did not fail";
    } catch (const Platform::ResultException& failure) {
        EXPECT_EQ(static_cast<std::uint32_t>(failure.Code()), 0x8007001Du); // HRESULT_FROM_WIN32(ERROR_WRITE_FAULT)
    }
}

} // namespace
