// Overwriting of secrets that are not needed any more, in a way that no compiler leaves out.
#pragma once

#include <cstring>
#include <string>

namespace Gant {

inline void cleanse( void * bytes, size_t size ) { explicit_bzero( bytes, size ); }

// The string is empty afterwards.
inline void cleanse( std::string & bytes ) {
   cleanse( bytes.data(), bytes.size() );
   bytes.clear();
}

} // namespace Gant
