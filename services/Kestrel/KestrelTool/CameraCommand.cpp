#include "CameraCommand.h"

#include "CameraArithmetic.h"
#include "NumberParsing.h"

namespace Tessel::Bridge::Server::Services::Kestrel {
namespace {

using Platform::DevicePropertyStatus;

// Device properties of the extended camera control set, as the driver names them.
constexpr const wchar_t* kBlurProperty = L"{1CB79112-C0D2-4213-9CA6-CD4FDB927972}, 41";
constexpr const wchar_t* kAutoFrameProperty = L"{1CB79112-C0D2-4213-9CA6-CD4FDB927972}, 43";

const wchar_t* Flag(bool on)
{
    return on ? L"1" : L"0";
}

// Percentages above 100 are refused; compared unsigned, so are negative ones.
bool IsPercent(int value)
{
    return static_cast<unsigned>(value) <= 100u;
}

class CameraCommand {
public:
    explicit CameraCommand(CameraSession& session) : session_(session) {}

    // Every operation but IsCameraSupported retries a set-up that found no camera.
    bool Ready()
    {
        if (!session_.Initialized()) session_.EnsureInitialized();
        return session_.Initialized();
    }

    Platform::ICameraCapture& Capture() { return *session_.MediaCapture(); }

    std::wstring GetZoom()
    {
        if (!Ready() || !Capture().IsZoomSupported()) return L"-1";
        std::int32_t percent = 0;
        if (session_.ZoomController()->GetDefaultValue(percent)) return std::to_wstring(percent);
        const Platform::ZoomRange zoom = Capture().GetZoomRange();
        const float live = (zoom.value - zoom.min) * 100.0f / (zoom.max - zoom.min);
        return std::to_wstring(SaturatingCast<std::int32_t>(live));
    }

    std::wstring SetZoom(const std::wstring& value)
    {
        if (!Ready()) return L"0";
        std::int32_t percent = StringToInt(value);
        if (!IsPercent(percent) || !Capture().IsZoomSupported()) return L"0";
        session_.ZoomController()->SetDefaultValue(&percent);
        return L"1";
    }

    std::wstring IsEffectSupported(const wchar_t* property)
    {
        if (!Ready()) return L"-1";
        return Flag(Capture().GetDevicePropertyStatus(property) == DevicePropertyStatus::Success);
    }

    // The controllers are passed as the session holds them: a retried set-up
    // creates them.
    std::wstring GetEffect(const wchar_t* property, const std::shared_ptr<DefaultController>& controller)
    {
        // Only a definite "not supported" refuses; other statuses read the default.
        if (!Ready() || Capture().GetDevicePropertyStatus(property) == DevicePropertyStatus::NotSupported) {
            return L"-1";
        }
        std::int32_t flags = 0;
        controller->GetDefaultValue(flags);
        return Flag(flags != 0);
    }

    std::wstring SetEffect(const wchar_t* property, const std::shared_ptr<DefaultController>& controller,
                           const std::wstring& value)
    {
        if (!Ready()) return L"0";
        const int on = StringToInt(value);
        if (Capture().GetDevicePropertyStatus(property) == DevicePropertyStatus::NotSupported) return L"0";
        const std::int32_t flags = on != 0 ? 1 : 0;
        controller->SetDefaultValue(&flags);
        return L"1";
    }

    std::wstring GetBrightness()
    {
        if (!Ready()) return L"-1";
        const Platform::ControlCapabilities range = Capture().GetBrightnessCapabilities();
        if (!range.supported) return L"-1";
        std::int32_t saved = 0;
        const double raw = session_.BrightnessController()->GetDefaultValue(saved)
                               ? static_cast<double>(saved)
                               : Capture().TryGetBrightnessValue();
        // Rounded to nearest, unlike the zoom reading.
        return std::to_wstring(SaturatingCast<std::int32_t>((raw - range.min) * 100.0 / (range.max - range.min) + 0.5));
    }

    std::wstring SetBrightness(const std::wstring& value)
    {
        if (!Ready()) return L"0";
        const int percent = StringToInt(value);
        if (!IsPercent(percent)) return L"0";
        const Platform::ControlCapabilities range = Capture().GetBrightnessCapabilities();
        if (!range.supported) return L"0";
        const std::int32_t raw = SaturatingCast<std::int32_t>(range.min + (range.max - range.min) * percent / 100.0 + 0.5);
        session_.BrightnessController()->SetDefaultValue(&raw);
        return L"1";
    }

private:
    CameraSession& session_;
};

} // namespace

void HandleCameraCommand(CameraSession& session, std::wstring function, std::wstring value, std::wstring& result)
{
    CameraCommand camera(session);
    if (function == L"IsZoomSupported") {
        result = !camera.Ready() ? L"-1" : Flag(camera.Capture().IsZoomSupported());
    } else if (function == L"GetZoom") {
        result = camera.GetZoom();
    } else if (function == L"SetZoom") {
        result = camera.SetZoom(value);
    } else if (function == L"IsBlurSupported") {
        result = camera.IsEffectSupported(kBlurProperty);
    } else if (function == L"GetBlurOnOff") {
        result = camera.GetEffect(kBlurProperty, session.BlurController());
    } else if (function == L"SetBlurOnOff") {
        result = camera.SetEffect(kBlurProperty, session.BlurController(), value);
    } else if (function == L"IsAutoFrameSupported") {
        result = camera.IsEffectSupported(kAutoFrameProperty);
    } else if (function == L"GetAutoFrameOnOff") {
        result = camera.GetEffect(kAutoFrameProperty, session.AutoFrameController());
    } else if (function == L"SetAutoFrameOnOff") {
        result = camera.SetEffect(kAutoFrameProperty, session.AutoFrameController(), value);
    } else if (function == L"GetBrightness") {
        result = camera.GetBrightness();
    } else if (function == L"SetBrightness") {
        result = camera.SetBrightness(value);
    } else if (function == L"IsCameraSupported") {
        // Reports the last set-up as it stands; never retries.
        result = Flag(session.CameraFound());
    }
    function.clear();
    value.clear();
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
