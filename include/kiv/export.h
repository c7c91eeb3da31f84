// The one export macro of the library. Everything in the namespace `kiv` that a host may name
// (interfaces, handles, factories, exceptions, free functions) carries KIV_EXPORT; everything else
// is hidden by the build's default visibility.
#ifndef KIV_EXPORT_H_
#define KIV_EXPORT_H_

#if defined(_WIN32)
#if defined(KIV_BUILDING)
#define KIV_EXPORT __declspec(dllexport)
#elif defined(KIV_STATIC)
#define KIV_EXPORT
#else
#define KIV_EXPORT __declspec(dllimport)
#endif
#else
#define KIV_EXPORT __attribute__((visibility("default")))
#endif

#endif  // KIV_EXPORT_H_
