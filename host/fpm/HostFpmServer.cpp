#include "HostFpmServer.h"

#include "GantAsio.h"
#include "HostNetlink.h"

#include <asio/ip/tcp.hpp>
#include <asio/write.hpp>
#include <charconv>
#include <chrono>
#include <sys/socket.h>
#include <system_error>

namespace Host {

namespace {

using asio::ip::tcp;

constexpr size_t pieceMost = 65536;
constexpr double tryAgainSeconds = 5;

double systemSecondsOfFpm() {
   return std::chrono::duration< double >( std::chrono::system_clock::now().time_since_epoch() ).count();
}

std::string textOf( const tcp::endpoint & endpoint ) {
   const auto address = endpoint.address().to_string();
   return ( endpoint.address().is_v6() ? "[" + address + "]" : address ) + ":" + std::to_string( endpoint.port() );
}

} // namespace

std::string parseFpm( const std::string & text, FpmServer::Config & config ) {
   config = { {}, 0, config.receiveBuffer };
   if ( text == "off" ) return {};
   const auto colon = text.rfind( ':' );
   auto wrong = "\"" + text + "\" is not ADDRESS:PORT or off";
   if ( colon == std::string::npos ) return wrong;
   auto address = text.substr( 0, colon );
   if ( address.size() > 2 && address.front() == '[' && address.back() == ']' )
      address = address.substr( 1, address.size() - 2 );
   std::error_code error;
   asio::ip::make_address( address, error );
   const auto * const end = text.data() + text.size();
   const auto [ at, failed ] = std::from_chars( text.data() + colon + 1, end, config.port );
   if ( error || failed != std::errc() || at != end ) return wrong;
   config.address = address;
   return {};
}

// Kept by what is under way, so that it may end after the server.
struct FpmServer::Sockets {
   tcp::acceptor acceptor{ Gant::ioContext() };
   tcp::socket client{ Gant::ioContext() };
   tcp::socket next{ Gant::ioContext() };
   std::unique_ptr< FpmStream > stream;
   std::string sending{}; // on its way
};

struct FpmServer::GantClock : Gant::Clock::Notifiee {
   explicit GantClock( FpmServer * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
   void onTime() override { owner->handleClock(); }
   FpmServer * owner;
};

FpmServer::FpmServer( RouterState & state, Config config, Surroundings around ) :
     state_( state ), config_( std::move( config ) ), around_( std::move( around ) ),
     answers_( state, around_.answers ), routes_( state, around_.intfAt, &answers_ ),
     clock_( Gant::activityManager()->newClock() ), clockReactor_( std::make_unique< GantClock >( this ) ) {
   answers_.senderIs( [ this ]( const std::string & frames ) { return send( frames ); } );
}

FpmServer::~FpmServer() {
   stop();
   *alive_ = false;
}

void FpmServer::start( const std::string & netns ) {
   if ( config_.address.empty() ) return;
   netns_ = netns;
   state_.sources().sourceIs( Teller::fpm(), this );
   state_.sources().sweptIs( Teller::fpm(), [ this ] {
      routes_.swept();
      if ( complete_ ) complete_();
   } );
   handleClock();
}

void FpmServer::stop() {
   if ( state_.sources().source( Teller::fpm() ) == this ) state_.sources().sourceIs( Teller::fpm(), nullptr );
   std::error_code ignored;
   if ( sockets_ ) {
      sockets_->acceptor.close( ignored );
      sockets_->client.close( ignored );
      sockets_ = nullptr;
   }
}

U16 FpmServer::port() const {
   std::error_code error;
   if ( !sockets_ ) return 0;
   const auto endpoint = sockets_->acceptor.local_endpoint( error );
   return error ? 0 : endpoint.port();
}

bool FpmServer::connected() const { return facts_.connected; }

void FpmServer::handleClock() {
   if ( !sockets_ )
      if ( const auto why = open(); !why.empty() ) {
         sockets_ = nullptr;
         return tryAgain( why );
      }
   facts_.error.clear();
   accept();
}

void FpmServer::tryAgain( const std::string & why ) {
   const auto error = "FPM at " + config_.address + ":" + std::to_string( config_.port ) + ": " + why;
   if ( std::exchange( facts_.error, error ) != error ) around_.tell( error, true );
   clock_->timeMinIs( clock_->now() + tryAgainSeconds );
}

std::string FpmServer::open() {
   sockets_ = std::make_shared< Sockets >();
   auto & acceptor = sockets_->acceptor;
   const tcp::endpoint endpoint( asio::ip::make_address( config_.address ), config_.port );
   try {
      runInNamespace( netns_, [ & ] { acceptor.open( endpoint.protocol() ); } );
      acceptor.set_option( tcp::acceptor::reuse_address( true ) );
      if ( config_.receiveBuffer != 0 )
         acceptor.set_option( asio::socket_base::receive_buffer_size( config_.receiveBuffer ) );
      acceptor.bind( endpoint );
      acceptor.listen();
   } catch ( const std::system_error & error ) {
      return error.code().message() + ( netns_.empty() ? "" : " (namespace " + netns_ + ")" );
   }
   return {};
}

void FpmServer::accept() {
   const auto sockets = sockets_;
   sockets->acceptor.async_accept( sockets->next, [ this, sockets, alive = alive_ ]( const std::error_code & error ) {
      if ( !*alive || sockets != sockets_ ) return;
      // No descriptor, say: the client is still there to be accepted.
      if ( error ) return tryAgain( error.message() );
      std::error_code ignored;
      const auto peer = sockets->next.remote_endpoint( ignored );
      if ( facts_.connected ) {
         around_.tell( "FPM: " + textOf( peer ) + " is refused: " + facts_.peer + " is connected", true );
         sockets->next.close( ignored );
      } else {
         sockets->client = std::move( sockets->next );
         sockets->next = tcp::socket( Gant::ioContext() );
         sockets->client.set_option( asio::socket_base::keep_alive( true ), ignored );
         sockets->stream =
              std::make_unique< FpmStream >( [ this ]( const auto & messages ) { return routes_.frame( messages ); } );
         facts_.connected = true;
         facts_.since = systemSecondsOfFpm();
         facts_.peer = textOf( peer );
         around_.tell( "FPM: " + facts_.peer + " is connected", false );
         state_.sources().begun( Teller::fpm() );
         if ( begun_ ) begun_();
         read();
      }
      accept();
   } );
}

void FpmServer::read() {
   const auto sockets = sockets_;
   if ( around_.congested() ) {
      if ( pausedSince_ == 0 ) pausedSince_ = clock_->now();
      return;
   }
   pausedSince_ = 0;
   sockets->client.async_read_some(
        asio::buffer( sockets->stream->room( pieceMost ), pieceMost ),
        [ this, sockets, alive = alive_, losses = facts_.losses ]( const std::error_code & error, size_t size ) {
           // Of a client that was lost: there may be another one.
           if ( !*alive || sockets != sockets_ || losses != facts_.losses ) return;
           if ( error )
              lose( error == asio::error::eof ? "it closed the connection" : error.message() );
           else
              handlePiece( size );
        } );
}

void FpmServer::handlePiece( size_t size ) {
   facts_.bytes += size;
   const auto wrong = sockets_->stream->take( size );
   routes_.settle();
   if ( wrong.empty() )
      read();
   else
      lose( wrong );
}

// A client that reads no answers holds nobody up: they wait, and the last state is told.
bool FpmServer::send( const std::string & frames ) {
   const auto sockets = sockets_;
   if ( !facts_.connected || !sockets->sending.empty() ) return false;
   if ( frames.empty() ) return true;
   sockets->sending = frames;
   asio::async_write( sockets->client, asio::buffer( sockets->sending ),
                      [ sockets ]( const std::error_code &, size_t ) { sockets->sending.clear(); } );
   return true;
}

void FpmServer::resume() {
   if ( facts_.connected && pausedSince_ != 0 ) read();
}

void FpmServer::lose( const std::string & why ) {
   std::error_code ignored;
   sockets_->client.close( ignored );
   around_.tell( "FPM: " + facts_.peer + " is lost: " + why, true );
   facts_.connected = false;
   facts_.since = systemSecondsOfFpm();
   facts_.peer.clear();
   ++facts_.losses;
   facts_.lastLoss = why;
   pausedSince_ = 0;
   answers_.clear();
   routes_.lost();
   state_.sources().lost( Teller::fpm() );
}

std::string FpmServer::resync() {
   if ( !facts_.connected ) return "nobody is connected";
   lose( "a resynchronization was asked for" );
   return {};
}

void FpmServer::devicesChanged() {
   if ( !sockets_ || std::exchange( reviewPosted_, true ) ) return;
   Gant::activityManager()->post( [ this, alive = alive_ ] {
      if ( !*alive ) return;
      reviewPosted_ = false;
      routes_.review();
   } );
}

SourceFacts FpmServer::facts() const {
   auto facts = facts_;
   facts.messages = routes_.messages();
   facts.nextHops = routes_.nextHops();
   facts.answered = answers_.answered();
   facts.pausedSeconds = pausedSince_ == 0 ? 0 : clock_->now() - pausedSince_;
   return facts;
}

} // namespace Host
