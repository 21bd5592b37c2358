// Numbers, strings and the few templates over them that every header uses.
#pragma once

#include <cstdint>
#include <string>

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S16 = std::int16_t;
using S32 = std::int32_t;
using S64 = std::int64_t;

namespace Gant {

using String = std::string;

// The name of an entity within its directory.
using Name = std::string;

// printf's format.
String format( const char * fmt, ... ) __attribute__( ( format( printf, 1, 2 ) ) );

} // namespace Gant
