#include "HostFpmStream.h"

#include <algorithm>
#include <cstring>
#include <libmnl/libmnl.h>

namespace Host {

namespace {

constexpr size_t headSize = 4;
constexpr U8 version = 1, netlinkType = 1;

std::string wrongHead( U8 first, U8 second, size_t length ) {
   if ( first != version ) return "a frame of version " + std::to_string( first ) + ", not 1";
   if ( second != netlinkType )
      return "a frame of type " + std::to_string( second ) + ", not netlink: FRR needs -M dplane_fpm_nl";
   if ( length < headSize ) return "a frame of " + std::to_string( length ) + " bytes";
   return {};
}

} // namespace

char * FpmStream::room( size_t size ) {
   if ( begin_ == end_ ) begin_ = end_ = 0;
   if ( buffer_.size() < end_ + size && begin_ != 0 ) {
      std::memmove( buffer_.data(), buffer_.data() + begin_, end_ - begin_ );
      end_ -= begin_;
      begin_ = 0;
   }
   if ( buffer_.size() < end_ + size ) buffer_.resize( end_ + size );
   return buffer_.data() + end_;
}

std::string FpmStream::take( size_t size ) {
   end_ += size;
   while ( end_ - begin_ >= headSize ) {
      const auto * const head = reinterpret_cast< const U8 * >( buffer_.data() + begin_ );
      const size_t length = size_t( head[ 2 ] ) << 8 | head[ 3 ];
      if ( auto wrong = wrongHead( head[ 0 ], head[ 1 ], length ); !wrong.empty() ) return wrong;
      if ( end_ - begin_ < length ) break;
      auto wrong = frame( buffer_.data() + begin_ + headSize, length - headSize );
      if ( !wrong.empty() ) return wrong;
      begin_ += length;
   }
   return {};
}

std::string FpmStream::frame( const char * bytes, size_t size ) {
   if ( reinterpret_cast< uintptr_t >( bytes ) % alignof( nlmsghdr ) != 0 ) {
      aligned_.resize( ( size + sizeof( U32 ) - 1 ) / sizeof( U32 ) );
      if ( size != 0 ) std::memcpy( aligned_.data(), bytes, size );
      bytes = reinterpret_cast< const char * >( aligned_.data() );
   }
   messages_.clear();
   auto left = size;
   while ( left >= MNL_NLMSG_HDRLEN ) {
      const auto * const header = reinterpret_cast< const nlmsghdr * >( bytes );
      if ( header->nlmsg_len < MNL_NLMSG_HDRLEN || header->nlmsg_len > left )
         return "a netlink message of " + std::to_string( header->nlmsg_len ) + " bytes in the " +
                std::to_string( left ) + " that are left of its frame";
      messages_.push_back( header );
      const auto step = std::min< size_t >( MNL_ALIGN( header->nlmsg_len ), left );
      bytes += step;
      left -= step;
   }
   if ( left != 0 ) return std::to_string( left ) + " bytes too many in a frame";
   return each_( messages_ );
}

} // namespace Host
