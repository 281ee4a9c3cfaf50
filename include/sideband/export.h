/* SPDX-License-Identifier: Apache-2.0 */
/* Linkage, visibility and format-check macros that every public header uses. */
#ifndef SIDEBAND_EXPORT_H
#define SIDEBAND_EXPORT_H

#ifdef __cplusplus
/** In front of declarations that have C linkage in C++ too, and behind them. */
#define SIDEBAND_BEGIN_DECLS extern "C" {
#define SIDEBAND_END_DECLS }
#else
#define SIDEBAND_BEGIN_DECLS
#define SIDEBAND_END_DECLS
#endif

#if defined(__GNUC__)
/** Marks what the shared library exports; everything else in it is hidden. */
#define SIDEBAND_EXPORT __attribute__((__visibility__("default")))
/** Lets the compiler check a printf-style argument list. */
#define SIDEBAND_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))
/** Lays an aggregate out without padding; its size is asserted where it stands. */
#define SIDEBAND_PACKED __attribute__((__packed__))
/** Introduces an anonymous aggregate without a warning in C++. */
#define SIDEBAND_ANONYMOUS __extension__
#else
#define SIDEBAND_EXPORT
#define SIDEBAND_PRINTF(text, first)
#define SIDEBAND_PACKED
#define SIDEBAND_ANONYMOUS
#endif

/** A compile-time check that both C11 and C++ understand. */
#ifdef __cplusplus
#define SIDEBAND_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define SIDEBAND_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

/* The platform's request records keep 64 bits for each pointer. */
SIDEBAND_STATIC_ASSERT(sizeof(void*) <= 8, "pointers of 32 or 64 bits");

#endif
