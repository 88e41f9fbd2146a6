/*
 * C linkage and visibility for the platform's declarations: whoever implements one of them offers it to the plug-in.
 */
#ifndef PLATFORM_EXPORT_H
#define PLATFORM_EXPORT_H

#ifdef __cplusplus
#define PLATFORM_BEGIN_DECLS extern "C" {
#define PLATFORM_END_DECLS }
#else
#define PLATFORM_BEGIN_DECLS
#define PLATFORM_END_DECLS
#endif

#define PLATFORM_API __attribute__((visibility("default")))

#endif
