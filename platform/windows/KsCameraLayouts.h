#pragma once

// Kernel-streaming payloads the camera code sends. KSPROPERTY and
// KSPROPERTY_VIDEOPROCAMP_S come from mingw's ks.h and ksmedia.h and are only
// pinned here; mingw-w64 10 lacks the extended camera control payloads, so those
// are declared with the names and layouts of the Windows SDK/WDK ksmedia.h. They
// live in the project namespace so a newer ksmedia.h that has them cannot clash.

#include <windows.h>

// mingw-w64 10's strmif.h (through ddraw.h) redefines TIMECODE_SAMPLE and
// DDPIXELFORMAT unless it comes before ksmedia.h.
#include <strmif.h>

#include <ks.h>
#include <ksmedia.h>

#include <cstddef>

// ks.h: the identifier every property request starts with.
static_assert(sizeof(KSPROPERTY) == 24);
static_assert(offsetof(KSPROPERTY, Set) == 0);
static_assert(offsetof(KSPROPERTY, Id) == 16);
static_assert(offsetof(KSPROPERTY, Flags) == 20);

// ksmedia.h: PROPSETID_VIDCAP_VIDEOPROCAMP request and answer.
static_assert(sizeof(KSPROPERTY_VIDEOPROCAMP_S) == 40);
static_assert(offsetof(KSPROPERTY_VIDEOPROCAMP_S, Value) == 24);
static_assert(offsetof(KSPROPERTY_VIDEOPROCAMP_S, Flags) == 28);
static_assert(offsetof(KSPROPERTY_VIDEOPROCAMP_S, Capabilities) == 32);

namespace Tessel::Bridge::Platform::Windows {

// ksmedia.h (KSPROPERTYSETID_ExtendedCameraControl): header of every payload;
// the body follows it directly (56 bytes in all for EV compensation, 64 for
// a video processing setting).
struct KSCAMERA_EXTENDEDPROP_HEADER {
    ULONG Version;
    ULONG PinId;
    ULONG Size;
    ULONG Result;
    ULONGLONG Flags;
    ULONGLONG Capability;
};

// ksmedia.h: the value union inside extended payloads.
struct KSCAMERA_EXTENDEDPROP_VALUE {
    union {
        double dbl;
        ULONGLONG ull;
        ULONG ul;
        ULARGE_INTEGER ratio;
        LONG l;
        LONGLONG ll;
    } Value;
};

// ksmedia.h: payload of KSPROPERTY_CAMERACONTROL_EXTENDED_EVCOMPENSATION.
struct KSCAMERA_EXTENDEDPROP_EVCOMPENSATION {
    ULONG Mode;
    LONG Min;
    LONG Max;
    LONG Value;
    ULONGLONG Reserved;
};

// ksmedia.h: payload of the extended white balance, exposure, focus and ISO controls.
struct KSCAMERA_EXTENDEDPROP_VIDEOPROCSETTING {
    ULONG Mode;
    LONG Min;
    LONG Max;
    LONG Step;
    KSCAMERA_EXTENDEDPROP_VALUE VideoProc;
    ULONGLONG Reserved;
};

static_assert(sizeof(KSCAMERA_EXTENDEDPROP_HEADER) == 32);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_HEADER, Version) == 0);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_HEADER, PinId) == 4);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_HEADER, Size) == 8);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_HEADER, Result) == 12);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_HEADER, Flags) == 16);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_HEADER, Capability) == 24);

static_assert(sizeof(KSCAMERA_EXTENDEDPROP_VALUE) == 8);

static_assert(sizeof(KSCAMERA_EXTENDEDPROP_EVCOMPENSATION) == 24);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_EVCOMPENSATION, Mode) == 0);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_EVCOMPENSATION, Min) == 4);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_EVCOMPENSATION, Max) == 8);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_EVCOMPENSATION, Value) == 12);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_EVCOMPENSATION, Reserved) == 16);

static_assert(sizeof(KSCAMERA_EXTENDEDPROP_VIDEOPROCSETTING) == 32);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_VIDEOPROCSETTING, Mode) == 0);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_VIDEOPROCSETTING, Min) == 4);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_VIDEOPROCSETTING, Max) == 8);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_VIDEOPROCSETTING, Step) == 12);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_VIDEOPROCSETTING, VideoProc) == 16);
static_assert(offsetof(KSCAMERA_EXTENDEDPROP_VIDEOPROCSETTING, Reserved) == 24);

} // namespace Tessel::Bridge::Platform::Windows
