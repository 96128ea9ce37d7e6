#pragma once

namespace KestrelTest {

// Path forms from the current directory C:\Program Files\Vendor: the file
// opening the path reaches (null: none), and whether the path rule allows it.
struct PathForm { const wchar_t* path; const wchar_t* opens; bool allowed; };

inline constexpr const wchar_t* kVendorApp = L"C:\\Program Files\\Vendor\\App.exe";
inline constexpr PathForm kPathForms[] = {
    {L"\\Program Files\\Vendor\\App.exe", kVendorApp, true},
    {L"App.exe", kVendorApp, true},
    {L"c:App.exe", kVendorApp, true},
    {L"%ProgramFiles%\\Vendor\\App.exe", nullptr, true}, // opening takes "%" as a name's
    {L"C:\\Program Files\\Vendor\\App.exe.", kVendorApp, true},
    {L"C:\\Program Files\\Vendor\\App.exe  ", kVendorApp, true},
    {L"c:/PROGRAM FILES/vendor/app.EXE", kVendorApp, true},
    {L"\\\\?\\C:\\Program Files\\Vendor\\App.exe.", L"C:\\Program Files\\Vendor\\App.exe.", false}, // as it stands
    {L"..\\..\\Users\\App.exe", L"C:\\Users\\App.exe", false},
    {L"C:\\Program Files\\Vendor\\Missing.exe", nullptr, true},
};

} // namespace KestrelTest
