/// The product's telemetry library: gauges, sent to where the host configuration says.
///
/// Nobody listening, or no address configured, is never an error.
#pragma once

struct cvtelemetry;
using cvtelemetry_t = cvtelemetry*;

/// Opens a handle. `address` ("address:port") and `prefix` (put before each name) may be null: the host configuration's
/// address, no prefix. Returns 0, or an errno value with the handle null; the other calls take a null handle.
int cvtelemetry_init(cvtelemetry_t* handle, const char* address, const char* prefix);

/// Sends a gauge without blocking; what the kernel does not take is kept for cvtelemetry_flush. Returns 0 or an errno
/// value.
int cvtelemetry_gauge(cvtelemetry_t handle, const char* name, double value);

/// Tries again to send what was kept, for at most 100 ms. Returns 0, or an errno value when something is still kept.
int cvtelemetry_flush(cvtelemetry_t handle);

/// Drops what is still kept and frees the handle.
int cvtelemetry_destroy(cvtelemetry_t handle);
