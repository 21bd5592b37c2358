#include "DpDevice.h"

#include <cerrno>
#include <cstdio>

namespace Vexdp {

Device::Stat & Device::Stat::operator+=( const Stat & other ) {
   packets += other.packets;
   dropped += other.dropped;
   bytes += other.bytes;
   return *this;
}

Device::Carried & Device::Carried::operator+=( const Carried & other ) {
   bursts += other.bursts;
   cycles += other.cycles;
   packets += other.packets;
   bytes += other.bytes;
   return *this;
}

Device::Stat sumOf( const PerWorker< Device::Stat > & stats ) {
   Device::Stat sum;
   for ( unsigned worker = 0; worker < stats.size(); ++worker ) sum += stats[ worker ];
   return sum;
}

Outcome stationFrom( const std::string & text, MacAddr & mac ) {
   auto & b = mac.bytes;
   int end = 0;
   const auto fields = std::sscanf( text.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%n", &b[ 0 ], &b[ 1 ], &b[ 2 ],
                                    &b[ 3 ], &b[ 4 ], &b[ 5 ], &end );
   if ( fields != int( b.size() ) || std::size_t( end ) != text.size() || mac.isGroup() || mac == MacAddr() )
      return refuse( EINVAL, "mac_addr \"{}\" is no station's address", text );
   return {};
}

} // namespace Vexdp
