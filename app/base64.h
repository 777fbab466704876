// Bytes as text (RFC 4648).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

std::string Base64(const uint8_t* bytes, size_t length);
