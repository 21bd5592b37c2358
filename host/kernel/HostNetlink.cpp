#include "HostNetlink.h"

#include "GantAsio.h"

#include <array>
#include <asio/posix/stream_descriptor.hpp>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace Host {

namespace {

constexpr size_t roomOfMessage = 10240;
constexpr size_t pieceMost = 32768;
constexpr unsigned piecesPerTurn = 16, drainMost = 65536;
int receiveBuffer = defaultReceiveBuffer; // bytes

std::string reasonOf( int error, const nlmsghdr & header ) {
   std::string reason = std::strerror( error );
   if ( ( header.nlmsg_flags & NLM_F_ACK_TLVS ) == 0 ) return reason;
   // The request that failed is not repeated: NETLINK_CAP_ACK.
   eachAttr( header, sizeof( nlmsgerr ), [ & ]( const nlattr & attr ) {
      if ( mnl_attr_get_type( &attr ) == NLMSGERR_ATTR_MSG ) reason += std::string( ": " ) + mnl_attr_get_str( &attr );
   } );
   return reason;
}

[[noreturn]] void failNetlink( const std::string & what ) {
   throw std::system_error( errno, std::generic_category(), what );
}

} // namespace

void eachAttr( const nlmsghdr & header, size_t fixed, const std::function< void( const nlattr & ) > & each ) {
   const auto * const end = static_cast< const char * >( mnl_nlmsg_get_payload_tail( &header ) );
   const auto * attr = static_cast< const nlattr * >( mnl_nlmsg_get_payload_offset( &header, fixed ) );
   while ( mnl_attr_ok( attr, static_cast< int >( end - reinterpret_cast< const char * >( attr ) ) ) ) {
      each( *attr );
      attr = mnl_attr_next( attr );
   }
}

void NetlinkBatch::begin( U16 type, U16 flags, const void * body, size_t size ) {
   last_ = used_;
   if ( buffer_.size() < used_ + roomOfMessage ) buffer_.resize( used_ + 2 * roomOfMessage );
   auto * const header = mnl_nlmsg_put_header( buffer_.data() + used_ );
   header->nlmsg_type = type;
   header->nlmsg_flags = U16( NLM_F_REQUEST | flags );
   std::memcpy( mnl_nlmsg_put_extra_header( header, size ), body, size );
   used_ = last_ + MNL_ALIGN( header->nlmsg_len );
   ++messages_;
}

nlmsghdr * NetlinkBatch::last() { return reinterpret_cast< nlmsghdr * >( buffer_.data() + last_ ); }

nlmsghdr & NetlinkBatch::append( const nlmsghdr & message ) {
   last_ = used_;
   if ( buffer_.size() < used_ + roomOfMessage ) buffer_.resize( used_ + 2 * roomOfMessage );
   assert( message.nlmsg_len <= roomOfMessage );
   std::memcpy( buffer_.data() + used_, &message, message.nlmsg_len );
   used_ = last_ + MNL_ALIGN( message.nlmsg_len );
   ++messages_;
   return *last();
}

void NetlinkBatch::attrBytes( U16 type, const void * data, size_t size ) {
   assert( used_ - last_ + size + 16 <= roomOfMessage );
   mnl_attr_put( last(), type, size, data );
   used_ = last_ + MNL_ALIGN( last()->nlmsg_len );
}

void NetlinkBatch::attrText( U16 type, const std::string & text ) { attrBytes( type, text.c_str(), text.size() + 1 ); }

void NetlinkBatch::nest( U16 type ) {
   nests_.push_back( used_ );
   mnl_attr_nest_start( last(), type );
   used_ = last_ + MNL_ALIGN( last()->nlmsg_len );
}

void NetlinkBatch::endNest() {
   mnl_attr_nest_end( last(), reinterpret_cast< nlattr * >( buffer_.data() + nests_.back() ) );
   nests_.pop_back();
}

void NetlinkBatch::seal( U32 sequence, bool acknowledged ) {
   for ( size_t at = 0; at < used_; ) {
      auto * const header = reinterpret_cast< nlmsghdr * >( buffer_.data() + at );
      header->nlmsg_seq = sequence++;
      at += MNL_ALIGN( header->nlmsg_len );
   }
   if ( acknowledged ) last()->nlmsg_flags |= NLM_F_ACK;
}

// Outlives its reader for as long as a wait is under way.
struct NetlinkReader::Descriptor {
   Descriptor( int fd, Each each, Failed failed ) :
        stream( Gant::ioContext(), fd ), each( std::move( each ) ), failed( std::move( failed ) ) {}
   asio::posix::stream_descriptor stream;
   Each each;
   Failed failed;
   bool held = false;
   bool waiting = false;
   bool gone = false;
};

NetlinkReader::NetlinkReader( int fd, Each each, Failed failed ) :
     descriptor_( std::make_shared< Descriptor >( fd, std::move( each ), std::move( failed ) ) ) {
   wait();
}

NetlinkReader::~NetlinkReader() {
   descriptor_->gone = true;
   std::error_code ignored;
   descriptor_->stream.close( ignored );
}

int NetlinkReader::fd() const { return descriptor_->stream.native_handle(); }

void NetlinkReader::heldIs( bool held ) {
   descriptor_->held = held;
   wait();
}

void NetlinkReader::wait() {
   if ( descriptor_->held || std::exchange( descriptor_->waiting, true ) ) return;
   descriptor_->stream.async_wait( asio::posix::stream_descriptor::wait_read,
                                   [ this, own = descriptor_ ]( const std::error_code & error ) {
                                      if ( own->gone || error ) return;
                                      own->waiting = false;
                                      read( piecesPerTurn );
                                      if ( !own->gone ) wait();
                                   } );
}

void NetlinkReader::read( unsigned most ) {
   const auto own = descriptor_;
   while ( most-- != 0 && !own->gone && !own->held )
      if ( readPiece( *own ) < 0 ) {
         if ( errno != EAGAIN && errno != EINTR ) own->failed( errno );
         return;
      }
}

void NetlinkReader::drain() {
   const auto own = descriptor_;
   // Who writes faster than this is heard of by the next loss.
   for ( auto most = drainMost; most != 0 && !own->gone; --most )
      if ( readPiece( *own ) < 0 && errno != ENOBUFS && errno != EINTR ) return;
}

ssize_t NetlinkReader::readPiece( Descriptor & own ) {
   alignas( NLMSG_ALIGNTO ) std::array< char, pieceMost > piece;
   const auto length = ::recv( own.stream.native_handle(), piece.data(), piece.size(), MSG_DONTWAIT );
   auto left = static_cast< int >( length );
   for ( const auto * header = reinterpret_cast< const nlmsghdr * >( piece.data() );
         left > 0 && !own.gone && mnl_nlmsg_ok( header, left ); header = mnl_nlmsg_next( header, &left ) )
      own.each( *header );
   return length;
}

NetlinkSocket::NetlinkSocket( int fd, std::function< void() > settle ) :
     settle_( std::move( settle ) ), reader_(
                                          fd, [ this ]( const nlmsghdr & header ) { handle( header ); },
                                          [ this ]( int error ) {
                                             if ( !underWay_ ) return;
                                             refuseAll( error );
                                             finish();
                                          } ) {}

NetlinkSocket::~NetlinkSocket() { *alive_ = false; }

void NetlinkSocket::send( NetlinkBatch batch, Done done ) {
   assert( !batch.empty() );
   requests_.push_back( { std::move( batch ), {}, std::move( done ) } );
   start();
}

U32 NetlinkSocket::port() const {
   sockaddr_nl own{};
   socklen_t size = sizeof( own );
   return ::getsockname( reader_.fd(), reinterpret_cast< sockaddr * >( &own ), &size ) == 0 ? own.nl_pid : 0;
}

void NetlinkSocket::dump( NetlinkBatch batch, Each each, Done done ) {
   assert( batch.messages() == 1 );
   batch.last()->nlmsg_flags |= NLM_F_DUMP;
   requests_.push_back( { std::move( batch ), std::move( each ), std::move( done ) } );
   start();
}

// The kernel carries a batch out while it takes it: the answers are there when the call returns.
void NetlinkSocket::start() {
   if ( underWay_ || requests_.empty() ) return;
   auto & request = requests_.front();
   underWay_ = true;
   refusals_.clear();
   request.batch.seal( first_, !request.each );
   if ( ::send( reader_.fd(), request.batch.buffer_.data(), request.batch.used_, 0 ) >= 0 ) return;
   refuseAll( errno );
   Gant::activityManager()->post( [ this, alive = alive_ ] {
      if ( *alive ) finish();
   } );
}

void NetlinkSocket::handle( const nlmsghdr & header ) {
   if ( !underWay_ ) return;
   const auto & request = requests_.front();
   const auto place = header.nlmsg_seq - first_;
   if ( place >= request.batch.messages() ) return;
   const auto each = request.each;
   if ( each && ( header.nlmsg_flags & NLM_F_DUMP_INTR ) != 0 && refusals_.empty() )
      refusals_.push_back( { 0, EINTR, "the table changed while it was read" } );
   if ( header.nlmsg_type == NLMSG_ERROR )
      handleError( header );
   else if ( header.nlmsg_type == NLMSG_DONE )
      finish();
   else if ( each )
      each( header );
}

void NetlinkSocket::handleError( const nlmsghdr & header ) {
   const auto place = header.nlmsg_seq - first_;
   const auto error = -static_cast< const nlmsgerr * >( mnl_nlmsg_get_payload( &header ) )->error;
   if ( error != 0 ) refusals_.push_back( { place, error, reasonOf( error, header ) } );
   if ( place + 1 == requests_.front().batch.messages() ) finish();
}

void NetlinkSocket::refuseAll( int error ) {
   refusals_.clear();
   for ( size_t at = 0; at < requests_.front().batch.messages(); ++at )
      refusals_.push_back( { at, error, std::strerror( error ) } );
}

void NetlinkSocket::finish() {
   const auto request = std::move( requests_.front() );
   const auto refusals = std::move( refusals_ );
   const auto alive = alive_;
   requests_.pop_front();
   refusals_ = {};
   first_ += static_cast< U32 >( request.batch.messages() );
   underWay_ = false;
   start();
   settle_();
   if ( *alive ) request.done( refusals );
}

std::string pathOfNamespace( const std::string & netns ) {
   return netns.empty() || netns.find( '/' ) != std::string::npos ? netns : "/run/netns/" + netns;
}

U64 idOfNamespace( const std::string & netns ) {
   const auto path = netns.empty() ? "/proc/self/ns/net" : pathOfNamespace( netns );
   struct stat found {};
   return ::stat( path.c_str(), &found ) == 0 ? found.st_ino : 0;
}

void runInNamespace( const std::string & netns, const std::function< void() > & work ) {
   if ( netns.empty() ) return work();
   const auto path = pathOfNamespace( netns );
   std::exception_ptr thrown;
   std::thread( [ & ] {
      const int fd = ::open( path.c_str(), O_RDONLY | O_CLOEXEC );
      try {
         if ( fd < 0 || ::setns( fd, CLONE_NEWNET ) < 0 ) failNetlink( path );
         work();
      } catch ( ... ) {
         thrown = std::current_exception();
      }
      if ( fd >= 0 ) ::close( fd );
   } ).join();
   if ( thrown ) std::rethrow_exception( thrown );
}

void receiveBufferIs( int bytes ) { receiveBuffer = bytes; }

int openNetlink( const std::string & netns, std::span< const U32 > groups ) {
   int fd = -1;
   runInNamespace( netns, [ & ] {
      fd = ::socket( AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE );
      if ( fd < 0 ) failNetlink( "rtnetlink" );
   } );
   const auto optionIs = [ fd ]( int level, int option, int value ) {
      return ::setsockopt( fd, level, option, &value, sizeof( value ) ) == 0;
   };
   // They only make reasons clearer and answers shorter; where they are refused, things go on without.
   optionIs( SOL_NETLINK, NETLINK_EXT_ACK, 1 );
   optionIs( SOL_NETLINK, NETLINK_CAP_ACK, 1 );
   // Dumps of one protocol's routes.
   optionIs( SOL_NETLINK, NETLINK_GET_STRICT_CHK, 1 );
   // What is asked for comes as it is read.
   const int room = groups.empty() ? defaultReceiveBuffer : receiveBuffer;
   if ( !optionIs( SOL_SOCKET, SO_RCVBUFFORCE, room ) ) optionIs( SOL_SOCKET, SO_RCVBUF, room );
   sockaddr_nl own{};
   own.nl_family = AF_NETLINK;
   bool joined = ::bind( fd, reinterpret_cast< const sockaddr * >( &own ), sizeof( own ) ) == 0;
   for ( const auto group : groups )
      joined = joined && optionIs( SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, static_cast< int >( group ) );
   if ( joined ) return fd;
   const int why = errno;
   ::close( fd );
   throw std::system_error( why, std::generic_category(), "rtnetlink" );
}

} // namespace Host
