// The answers that come out of no database.
#pragma once

#include <cstdint>

// The version where no database is open.
inline constexpr int32_t kNoVersion = 65535;

// The texts that a client gets in the place of a zone.
inline constexpr char kNotSupported[] = "error:Server is not supportted";  // No database is open.
inline constexpr char kMallocFailed[] = "error:malloc failed";
inline constexpr char kErrorInput[] = "\"error:error input\"";  // The point is not on the Earth.
