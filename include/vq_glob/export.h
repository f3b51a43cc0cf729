/* Export and calling-convention macros shared by every public header. */
#ifndef VQ_GLOB_EXPORT_H
#define VQ_GLOB_EXPORT_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#  if defined(VQ_GLOB_BUILDING)
#    define VQ_API __declspec(dllexport)
#  elif defined(VQ_GLOB_STATIC)
#    define VQ_API
#  else
#    define VQ_API __declspec(dllimport)
#  endif
#else
#  define VQ_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#  define VQ_EXTERN_C_BEGIN extern "C" {
#  define VQ_EXTERN_C_END }
#else
#  define VQ_EXTERN_C_BEGIN
#  define VQ_EXTERN_C_END
#endif

/* The path element separator: "\" on Windows, "/" elsewhere. */
#if defined(_WIN32)
#  define VQ_PATH_SEPARATOR '\\'
#  define VQ_PATH_SEPARATOR_TEXT "\\"
#else
#  define VQ_PATH_SEPARATOR '/'
#  define VQ_PATH_SEPARATOR_TEXT "/"
#endif

/* printf-style argument checking where the compiler offers it. */
#if defined(__GNUC__) || defined(__clang__)
#  define VQ_PRINTF(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#  define VQ_PRINTF(fmt, first)
#endif

#endif /* VQ_GLOB_EXPORT_H */
