/*
 * kelapi.h - the one export macro and the C linkage brackets shared by every
 * public header of kelcore10 and kelnls10.
 *
 * The libraries are built with hidden visibility; only declarations marked
 * KELAPI are exported, so `nm -D` of the libraries shows the interface and
 * nothing else. On Windows the libraries' own objects mark the interface
 * __declspec(dllexport); callers need no dllimport, since the MinGW linker
 * imports functions from a DLL's import library without it, and the test
 * programs link the same objects statically.
 *
 * KEL_HIDDEN marks an internal declaration of the libraries' own (never one
 * of these headers') as hidden, so that the compiler may reach it directly
 * rather than through the tables of the dynamic linker; -fvisibility=hidden
 * covers only definitions. Windows images have no such visibility: there it
 * is empty.
 */
#ifndef KELAPI_H
#define KELAPI_H

#if defined(_WIN32) && (defined(__GNUC__) || defined(__clang__))
#if defined(KEL_BUILDING_CORE) || defined(KEL_BUILDING_NLS)
#define KELAPI __declspec(dllexport)
#else
#define KELAPI
#endif
#define KEL_HIDDEN
#define KEL_NORETURN __attribute__((noreturn))
#elif defined(__GNUC__) || defined(__clang__)
#define KELAPI __attribute__((visibility("default")))
#define KEL_HIDDEN __attribute__((visibility("hidden")))
#define KEL_NORETURN __attribute__((noreturn))
#else
#define KELAPI
#define KEL_HIDDEN
#define KEL_NORETURN
#endif

#ifdef __cplusplus
#define KEL_BEGIN_DECLS extern "C" {
#define KEL_END_DECLS }
#else
#define KEL_BEGIN_DECLS
#define KEL_END_DECLS
#endif

#endif /* KELAPI_H */
