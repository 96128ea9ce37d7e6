#pragma once

// Exported from the program that carries the library (Windows), imported by
// the components linking against it; default visibility elsewhere.
#if defined(_WIN32) && defined(KESTREL_SECURITY_EXPORTS)
#define KESTREL_SECURITY_API __declspec(dllexport)
#elif defined(_WIN32) && defined(KESTREL_SECURITY_IMPORTS)
#define KESTREL_SECURITY_API __declspec(dllimport)
#elif defined(_WIN32)
#define KESTREL_SECURITY_API
#else
#define KESTREL_SECURITY_API __attribute__((visibility("default")))
#endif
