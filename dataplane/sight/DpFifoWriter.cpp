#include "DpFifoWriter.h"

#include "DpClock.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>

namespace Vexdp {

namespace {

constexpr auto kLookAgain = std::chrono::milliseconds( 10 );
constexpr std::uint32_t kEthernet = 1, kRawIp = 101; // LINKTYPE_*

template < class T >
std::string inBytes( T value ) {
   return { reinterpret_cast< const char * >( &value ), sizeof value };
}

std::string u16( unsigned value ) { return inBytes( std::uint16_t( value ) ); }
std::string u32( std::size_t value ) { return inBytes( std::uint32_t( value ) ); }

std::string pcapHeader( bool ethernet ) {
   return u32( 0xa1b2c3d4 ) + u16( 2 ) + u16( 4 ) + u32( 0 ) + u32( 0 ) + u32( 65535 ) +
          u32( ethernet ? kEthernet : kRawIp );
}

std::string pcapngBlock( std::uint32_t type, const std::string & body ) {
   const auto length = u32( body.size() + 12 );
   return u32( type ) + length + body + length;
}

// Interface 0 has frames, interface 1 bare packets.
std::string pcapngHeader() {
   const auto resolution = u16( 9 ) + u16( 1 ) + std::string( "\x09\0\0\0", 4 ) + u32( 0 ); // nanoseconds
   std::string text =
        pcapngBlock( 0x0a0d0d0a, u32( 0x1a2b3c4d ) + u16( 1 ) + u16( 0 ) + inBytes( std::int64_t( -1 ) ) );
   for ( const auto link : { kEthernet, kRawIp } )
      text += pcapngBlock( 1, u16( link ) + u16( 0 ) + u32( 65535 ) + resolution );
   return text;
}

// For writing, with a reader there; -1 when it can't be. Whoever made it may have put another file in its place.
int openedFifo( const std::string & path ) {
   const int fd = open( path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC );
   struct stat file {};
   if ( fd < 0 || ( fstat( fd, &file ) == 0 && S_ISFIFO( file.st_mode ) ) ) return fd;
   close( fd );
   return -1;
}

} // namespace

Outcome FifoWriter::check( const std::string & path ) {
   struct stat file {};
   if ( stat( path.c_str(), &file ) != 0 ) return refuse( errno, "there is no fifo {}", path );
   if ( !S_ISFIFO( file.st_mode ) ) return refuse( EINVAL, "{} is no fifo", path );
   return {};
}

FifoWriter::FifoWriter( std::shared_ptr< Capture > capture, Options options ) :
     capture_( std::move( capture ) ), options_( std::move( options ) ), thread_( [ this ] { run(); } ) {}

FifoWriter::~FifoWriter() {
   {
      const std::lock_guard< std::mutex > lock( mutex_ );
      ending_ = true;
   }
   ends_.notify_all();
   thread_.join();
}

void FifoWriter::run() {
   pthread_setname_np( pthread_self(), "fifo" );
   // A reader that has gone is an error of write().
   sigset_t broken;
   sigemptyset( &broken );
   sigaddset( &broken, SIGPIPE );
   pthread_sigmask( SIG_BLOCK, &broken, nullptr );
   std::unique_lock< std::mutex > lock( mutex_ );
   while ( !over_ && !ends_.wait_for( lock, kLookAgain, [ this ] { return ending_; } ) ) {
      lock.unlock();
      gather();
      if ( !flush() ) over_ = read_ && !options_.reconnect;
      lock.lock();
   }
   if ( fd_ >= 0 ) close( fd_ );
}

void FifoWriter::gather() {
   vex::pb::CaptureReply reply;
   capture_->tell( secondsNow(), reply );
   if ( fd_ < 0 ) {
      fd_ = openedFifo( options_.path );
      // The header of pcap says what all its packets are, so that it waits for the first.
      if ( fd_ >= 0 ) waiting_ = options_.format == CaptureFormat::pcapng ? pcapngHeader() : std::string();
      if ( fd_ >= 0 ) headed_ = options_.format == CaptureFormat::pcapng;
   }
   if ( fd_ < 0 ) return;
   read_ = true;
   for ( const auto & packet : reply.packet() ) write( packet );
}

void FifoWriter::write( const vex::pb::CaptureReply::Packet & packet ) {
   if ( waiting_.size() > kMostWaiting ) return;
   if ( !headed_ ) {
      ethernet_ = packet.ethernet();
      waiting_ += pcapHeader( ethernet_ );
      headed_ = true;
   }
   const auto & data = packet.data();
   if ( options_.format == CaptureFormat::pcap ) {
      if ( packet.ethernet() != ethernet_ ) return;
      waiting_ += u32( packet.time() / 1000000000 ) + u32( packet.time() % 1000000000 / 1000 ) + u32( data.size() ) +
                  u32( packet.length() ) + data;
      return;
   }
   auto padded = data;
   padded.resize( ( data.size() + 3 ) / 4 * 4 );
   waiting_ += pcapngBlock( 6, u32( packet.ethernet() ? 0 : 1 ) + u32( packet.time() >> 32 ) + u32( packet.time() ) +
                                    u32( data.size() ) + u32( packet.length() ) + padded );
}

bool FifoWriter::flush() {
   if ( fd_ < 0 ) return false;
   // With nothing to write, write() doesn't tell that nobody reads.
   pollfd reader{ fd_, 0, 0 };
   if ( poll( &reader, 1, 0 ) <= 0 || ( reader.revents & POLLERR ) == 0 ) {
      const auto written = ::write( fd_, waiting_.data(), waiting_.size() );
      if ( written >= 0 ) waiting_.erase( 0, std::size_t( written ) );
      if ( written >= 0 || errno == EAGAIN || errno == EINTR ) return true;
   }
   close( fd_ );
   fd_ = -1;
   return false;
}

} // namespace Vexdp
