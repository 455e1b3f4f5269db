/* SPDX-License-Identifier: Apache-2.0
 * Copyright 2026 The magcal Authors */

/* Symbol visibility for libmagcal.
 *
 * The library is built with hidden visibility by default; only the names a
 * host or a tool may resolve carry MAGCAL_API. The version script
 * (cmake/libmagcal.map) is the final word on what the shared object exports. */
#ifndef MAGCAL_EXPORT_H
#define MAGCAL_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define MAGCAL_API __attribute__((visibility("default")))
#else
#define MAGCAL_API
#endif

#ifdef __cplusplus
#define MAGCAL_EXTERN_C_BEGIN extern "C" {
#define MAGCAL_EXTERN_C_END }
#else
#define MAGCAL_EXTERN_C_BEGIN
#define MAGCAL_EXTERN_C_END
#endif

#endif /* MAGCAL_EXPORT_H */
