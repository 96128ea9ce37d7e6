#pragma once

// Media Foundation's camera default-value store (Windows 11 22621 and later).
// Debian's mingw-w64 10 mfidl.h predates it. The guards are the ones mfidl.h
// itself uses, so a newer mfidl.h that declares these wins and this adds nothing.
// Everything here is from the Windows SDK's um/mfidl.h (10.0.22621 and later).
// MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK comes from mingw's mfidl.h.

#include <windows.h>

#include <mfidl.h>
#include <mfobjects.h>

// COM interfaces are released through Release, never deleted through a base.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

#ifndef __IMFCameraControlDefaults_INTERFACE_DEFINED__
#define __IMFCameraControlDefaults_INTERFACE_DEFINED__

// mfidl.h: when a default is applied, before or after the stream starts.
typedef enum MF_CAMERA_CONTROL_CONFIGURATION_TYPE {
    MF_CAMERA_CONTROL_CONFIGURATION_TYPE_PRESTART = 0,
    MF_CAMERA_CONTROL_CONFIGURATION_TYPE_POSTSTART = 1
} MF_CAMERA_CONTROL_CONFIGURATION_TYPE;

// mfidl.h: what IMFCameraControlDefaults::GetRangeInfo fills in.
typedef struct MF_CAMERA_CONTROL_RANGE_INFO {
    LONG minValue;
    LONG maxValue;
    LONG stepValue;
    LONG defaultValue;
} MF_CAMERA_CONTROL_RANGE_INFO;

// mfidl.h: IID 75510662-B034-48F4-88A7-8DE61DAA4AF9, IUnknown then slots 3..6.
EXTERN_GUID(IID_IMFCameraControlDefaults, 0x75510662, 0xb034, 0x48f4, 0x88, 0xa7, 0x8d, 0xe6, 0x1d, 0xaa, 0x4a, 0xf9);
MIDL_INTERFACE("75510662-B034-48F4-88A7-8DE61DAA4AF9")
IMFCameraControlDefaults : public IUnknown
{
    virtual MF_CAMERA_CONTROL_CONFIGURATION_TYPE STDMETHODCALLTYPE GetType() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetRangeInfo(MF_CAMERA_CONTROL_RANGE_INFO* rangeInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE LockControlData(void** control, ULONG* controlSize, void** data,
                                                      ULONG* dataSize) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnlockControlData() = 0;
};
__CRT_UUID_DECL(IMFCameraControlDefaults, 0x75510662, 0xb034, 0x48f4, 0x88, 0xa7, 0x8d, 0xe6, 0x1d, 0xaa, 0x4a, 0xf9)

#endif // __IMFCameraControlDefaults_INTERFACE_DEFINED__

#ifndef __IMFCameraControlDefaultsCollection_INTERFACE_DEFINED__
#define __IMFCameraControlDefaultsCollection_INTERFACE_DEFINED__

// mfidl.h: IID 92D43D0F-54A8-4BAE-96DA-356D259A5C26. Derives from IMFAttributes
// (slots 3..32), so its own methods are slots 33..38.
EXTERN_GUID(IID_IMFCameraControlDefaultsCollection, 0x92d43d0f, 0x54a8, 0x4bae, 0x96, 0xda, 0x35, 0x6d, 0x25, 0x9a, 0x5c, 0x26);
MIDL_INTERFACE("92D43D0F-54A8-4BAE-96DA-356D259A5C26")
IMFCameraControlDefaultsCollection : public IMFAttributes
{
    virtual ULONG STDMETHODCALLTYPE GetControlCount() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetControl(ULONG index, IMFCameraControlDefaults** configuration) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetOrAddExtendedControl(MF_CAMERA_CONTROL_CONFIGURATION_TYPE configType,
                                                              ULONG controlId, DWORD streamId, ULONG dataSize,
                                                              IMFCameraControlDefaults** defaults) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetOrAddControl(MF_CAMERA_CONTROL_CONFIGURATION_TYPE configType,
                                                      REFGUID controlSet, ULONG controlId, ULONG controlSize,
                                                      ULONG dataSize, IMFCameraControlDefaults** defaults) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveControl(REFGUID controlSet, ULONG controlId) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveAllControls() = 0;
};
__CRT_UUID_DECL(IMFCameraControlDefaultsCollection, 0x92d43d0f, 0x54a8, 0x4bae, 0x96, 0xda, 0x35, 0x6d, 0x25, 0x9a, 0x5c, 0x26)

#endif // __IMFCameraControlDefaultsCollection_INTERFACE_DEFINED__

#ifndef __IMFCameraConfigurationManager_INTERFACE_DEFINED__
#define __IMFCameraConfigurationManager_INTERFACE_DEFINED__

// mfidl.h: the class CoCreateInstance makes for IMFCameraConfigurationManager.
EXTERN_GUID(CLSID_CameraConfigurationManager, 0x6c92b540, 0x5854, 0x4a17, 0x92, 0xb6, 0xac, 0x89, 0xc9, 0x6e, 0x96, 0x83);

// mfidl.h: IID A624F617-4704-4206-8A6D-EBDA4A093985, IUnknown then slots 3..5.
EXTERN_GUID(IID_IMFCameraConfigurationManager, 0xa624f617, 0x4704, 0x4206, 0x8a, 0x6d, 0xeb, 0xda, 0x4a, 0x09, 0x39, 0x85);
MIDL_INTERFACE("A624F617-4704-4206-8A6D-EBDA4A093985")
IMFCameraConfigurationManager : public IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE LoadDefaults(IMFAttributes* cameraAttributes,
                                                   IMFCameraControlDefaultsCollection** configurations) = 0;
    virtual HRESULT STDMETHODCALLTYPE SaveDefaults(IMFCameraControlDefaultsCollection* configurations) = 0;
    virtual void STDMETHODCALLTYPE Shutdown() = 0;
};
__CRT_UUID_DECL(IMFCameraConfigurationManager, 0xa624f617, 0x4704, 0x4206, 0x8a, 0x6d, 0xeb, 0xda, 0x4a, 0x09, 0x39, 0x85)

#endif // __IMFCameraConfigurationManager_INTERFACE_DEFINED__

#pragma GCC diagnostic pop
