// How translations read, in refusals and in shows.
#pragma once

#include "KynetAddr.h"

namespace Host {

// "10.0.0.1:80"; without a port the address alone.
inline Gant::String textOf( const Kynet::IpAndPort & end ) {
   const auto address = end.ip().stringValue();
   return end.port().value() == 0 ? address : address + ":" + std::to_string( end.port().value() );
}

} // namespace Host
