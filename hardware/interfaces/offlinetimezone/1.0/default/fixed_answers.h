// Answers that do not come from a database.
#pragma once

#include <cstdint>

// The version reported while no database is open.
inline constexpr int32_t kNoVersion = 65535;

// Texts that a client gets in place of a zone.
inline constexpr char kNotSupported[] = "error:Server is not supportted";  // No database is open.
inline constexpr char kMallocFailed[] = "error:malloc failed";
inline constexpr char kErrorInput[] = "\"error:error input\"";  // The point is outside the world.
