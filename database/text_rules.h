// Which texts a database may hold: rules for zone identifiers and notices.
#pragma once

#include <string_view>

namespace offlinetz {

// Why a database may not hold a text, as a phrase such as "is empty" that follows the name of the
// text; null where it may. The length is not judged, see kMaxStringLength. Bytes are printed to
// terminals and logs, so both kinds of text must be UTF-8 without control characters.

// An identifier, without the double quotes that it is stored with. A client takes the joined answer
// apart at double quotes and takes what begins with "error:" for an error.
const char* FaultOfIdentifier(std::string_view identifier);

// A notice, which may be empty.
const char* FaultOfNotice(std::string_view notice);

}  // namespace offlinetz
