// What is wrong with the bytes of a database file. All functions may be called on any thread.
#pragma once

#include <offlinetz.h>
#include <reader/open_bytes.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace offlinetz {

struct FileFault {
    offlinetz_status status = OFFLINETZ_OK;
    std::string phrase;  // May follow "is". Empty if nothing is wrong.
};

// Why the reader refuses a file. `failure` is the result of OpenBytes for its bytes. Throws
// std::bad_alloc.
FileFault FaultOf(const uint8_t* bytes, size_t size, const zonedetect::OpenFailure& failure);

// The fault of a file that the reader accepts: its digest may not match its content. Throws
// std::bad_alloc.
FileFault DigestFaultOf(const uint8_t* bytes, size_t size);

}  // namespace offlinetz
