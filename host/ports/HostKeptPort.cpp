#include "HostKeptPort.h"

#include "GantActivity.h"
#include "VexEnginePorts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <spdlog/spdlog.h>

namespace Host {

namespace {

// All in seconds.
constexpr double pollEvery = 1;
constexpr double firstBackOff = 1;
constexpr double mostBackOff = 2;
constexpr double mostBackOffDenied = 60; // a data plane without the right does not get it
// A link comes up so long after its device.
constexpr double linkPatience = 3;
// Ports are looked at every second: what is due by half of that is done.
constexpr double early = 0.5;

double loopTime() { return Gant::activityManager()->now(); }

bool denied( int code ) { return code == EPERM || code == EACCES; }

bool unsupported( int code ) { return code == ENOTSUP || code == EOPNOTSUPP || code == ENOSYS; }

void count( PortTraffic & traffic, const bess::pb::GetPortStatsResponse::Stat & stat, double seconds ) {
   if ( seconds > 0 && stat.packets() >= traffic.packets && stat.bytes() >= traffic.bytes ) {
      traffic.packetsPerSecond = static_cast< double >( stat.packets() - traffic.packets ) / seconds;
      traffic.bitsPerSecond = 8 * static_cast< double >( stat.bytes() - traffic.bytes ) / seconds;
   }
   traffic.packets = stat.packets();
   traffic.bytes = stat.bytes();
   traffic.dropped = stat.dropped();
}

} // namespace

const char * textOf( KeptPort::State state ) {
   switch ( state ) {
   case KeptPort::State::making: return "making";
   case KeptPort::State::up: return "up";
   case KeptPort::State::down: return "down";
   case KeptPort::State::failed: return "failed";
   case KeptPort::State::leaving: return "leaving";
   }
   return "";
}

KeptPort::KeptPort( const Gant::String & name, Vex::EnginePorts & engine, Events events ) :
     name_( name ), engine_( engine ), events_( std::move( events ) ) {}

KeptPort::~KeptPort() = default;

KeptPort::State KeptPort::state() const {
   if ( !wish_ ) return State::leaving;
   if ( there_ && !broken_ ) return !set_ ? State::making : linkUp_ ? State::up : State::down;
   return reason_.empty() ? State::making : State::failed;
}

bool KeptPort::leftOut() const {
   if ( !wish_ || !wish_->byDefault || there_ || reason_.empty() ) return false;
   // Not in a plain container, and not without the right.
   return !wish_->impossible.empty() || denied( code_ ) || reason_.find( "/dev/net/tun" ) != Gant::String::npos;
}

std::optional< bool > KeptPort::carries() const {
   if ( !wish_ || !wish_->hasLink || !wish_->conf.admin_up() ) return std::nullopt;
   if ( noDevice_ ) return false;
   return linkKnown_ && !broken_ && made() && conf_ == wishedConf_ ? std::optional( linkUp_ ) : std::nullopt;
}

bool KeptPort::linkAwaited() const {
   return made() && !broken_ && wish_->conf.admin_up() && conf_ == wishedConf_ && !linkKnown_;
}

bool KeptPort::due( double time ) const { return loopTime() + early >= time; }

void KeptPort::wishIs( std::optional< PortWish > wish ) {
   wish_ = std::move( wish );
   auto create = wish_ ? wish_->create.SerializeAsString() : Gant::String();
   if ( create != wishedCreate_ ) {
      retryAt_ = backOff_ = 0;
      reason_.clear();
      code_ = 0;
      noDevice_ = false;
   }
   wishedCreate_ = std::move( create );
   wishedConf_ = wish_ ? wish_->conf.SerializeAsString() : Gant::String();
   review();
}

void KeptPort::found( const bess::pb::ListPortsResponse::Port & port ) {
   bess::pb::CreatePortRequest made;
   made.set_name( port.name() );
   made.set_driver( port.driver() );
   made.set_num_inc_q( port.num_inc_q() );
   made.set_num_out_q( port.num_out_q() );
   made.set_size_inc_q( port.size_inc_q() );
   made.set_size_out_q( port.size_out_q() );
   if ( port.has_driver_arg() ) *made.mutable_arg() = port.driver_arg();
   made_ = made.SerializeAsString();
   mac_ = port.mac_addr();
   there_ = found_ = true;
   review();
}

bool KeptPort::made() const { return there_ && wish_ && wish_->impossible.empty() && made_ == wishedCreate_; }

void KeptPort::review() {
   if ( call_ ) return; // its answer comes back here
   if ( found_ && !broken_ && !made() && !events_.maySweep() ) return;
   if ( there_ && ( broken_ || !made() ) ) {
      if ( due( retryAt_ ) && events_.mayChange() ) destroy();
   } else if ( !wish_ ) {
      return;
   } else if ( !wish_->impossible.empty() ) {
      failed( 0, wish_->impossible );
   } else if ( !there_ ) {
      if ( due( retryAt_ ) && events_.mayChange() ) create();
   } else if ( conf_ != wishedConf_ && due( retryAt_ ) ) {
      if ( events_.mayChange() ) configure();
   } else if ( due( pollAt_ ) ) {
      pollLink();
   }
}

void KeptPort::create() {
   changing_ = true;
   made_ = wishedCreate_;
   hostIndex_ = if_nametoindex( wish_->hostDevice.c_str() );
   call_ = engine_.createPort( wish_->create,
                               [ this ]( const auto & error, const auto & reply ) { created( error, reply ); } );
}

void KeptPort::created( const Gant::String & error, const bess::pb::CreatePortResponse & reply ) {
   const auto code = reply.error().code();
   // Whose ever it is, and whatever the call that broke off has done: it is destroyed first.
   if ( !error.empty() || code == EEXIST ) made_.clear();
   there_ = error.empty() && ( code == 0 || code == EEXIST );
   noDevice_ = error.empty() && code == ENODEV;
   found_ = false;
   broken_ = false;
   set_ = false;
   conf_.clear();
   mac_ = reply.mac_addr();
   in_ = out_ = PortTraffic();
   countedAt_ = 0;
   linkUp_ = false;
   pollAt_ = 0;
   if ( !error.empty() || code != 0 )
      failed( code, error.empty() ? reply.error().errmsg() : error );
   else
      events_.done();
   settled();
}

void KeptPort::destroy() {
   changing_ = true;
   set_ = false;
   events_.changed();
   call_ = engine_.destroyPort(
        name_, [ this ]( const auto & error, const auto & reply ) { destroyed( error, reply.error() ); } );
}

void KeptPort::destroyed( const Gant::String & error, const bess::pb::Error & refusal ) {
   there_ = !error.empty() || ( refusal.code() != 0 && refusal.code() != ENOENT );
   linkUp_ = linkUp_ && there_;
   if ( there_ ) {
      failed( refusal.code(), error.empty() ? refusal.errmsg() : error );
   } else {
      broken_ = false;
      events_.done();
   }
   settled();
}

void KeptPort::configure() {
   changing_ = true;
   if ( found_ && hostIndex_ == 0 ) hostIndex_ = if_nametoindex( wish_->hostDevice.c_str() );
   bess::pb::SetPortConfRequest request;
   request.set_name( name_ );
   *request.mutable_conf() = wish_->conf;
   call_ = engine_.setPortConf( request, [ this, told = wish_->conf ]( const auto & error, const auto & reply ) {
      configured( told, error, reply.error() );
   } );
}

void KeptPort::configured( const bess::pb::PortConf & told, const Gant::String & error,
                           const bess::pb::Error & refusal ) {
   const bool taken = error.empty() && refusal.code() == 0;
   set_ = true;
   if ( taken || unsupported( refusal.code() ) )
      conf_ = told.SerializeAsString();
   else
      failed( refusal.code(), error.empty() ? refusal.errmsg() : error );
   if ( taken ) events_.done();
   if ( taken && !told.mac_addr().empty() ) mac_ = told.mac_addr();
   linkKnown_ = false;
   linkBy_ = loopTime() + linkPatience;
   pollAt_ = 0;
   settled();
}

void KeptPort::pollLink() {
   pollAt_ = loopTime() + pollEvery;
   if ( deviceReplaced() ) {
      broken( "device " + wish_->hostDevice +
              ( if_nametoindex( wish_->hostDevice.c_str() ) == 0 ? ": no such device"
                                                                 : ": another one has come in its place" ) );
      return;
   }
   call_ = engine_.linkStatus( name_, [ this ]( const auto & error, const auto & reply ) {
      call_ = nullptr;
      if ( error.empty() ) linkIs( reply );
   } );
}

bool KeptPort::deviceReplaced() const {
   return hostIndex_ != 0 && if_nametoindex( wish_->hostDevice.c_str() ) != hostIndex_;
}

void KeptPort::linkIs( const bess::pb::GetLinkStatusResponse & reply ) {
   const auto & refusal = reply.error();
   if ( refusal.code() != 0 && !unsupported( refusal.code() ) ) {
      there_ = there_ && refusal.code() != ENOENT;
      broken( refusal.errmsg() );
      return;
   }
   const auto carried = carries();
   const bool was = std::exchange( linkUp_, refusal.code() != 0 || reply.link_up() || ( wish_ && wish_->kernel ) );
   if ( conf_ == wishedConf_ && ( linkUp_ || loopTime() >= linkBy_ ) ) linkKnown_ = true;
   speed_ = reply.speed();
   if ( !wish_ ) return review();
   if ( conf_ == wishedConf_ ) {
      if ( linkUp_ || !wish_->conf.admin_up() )
         worked();
      else
         failed( 0, "device " + wish_->device + ": the link is down" );
   }
   if ( linkUp_ != was || carries() != carried ) events_.changed();
   pollStats();
}

void KeptPort::pollStats() {
   call_ = engine_.portStats( name_, [ this ]( const auto & error, const auto & reply ) {
      call_ = nullptr;
      if ( error.empty() && reply.error().code() == 0 ) statsAre( reply );
      review();
   } );
}

void KeptPort::statsAre( const bess::pb::GetPortStatsResponse & reply ) {
   const double seconds = countedAt_ == 0 ? 0 : reply.timestamp() - countedAt_;
   countedAt_ = reply.timestamp();
   count( in_, reply.inc(), seconds );
   count( out_, reply.out(), seconds );
}

void KeptPort::broken( const Gant::String & reason ) {
   broken_ = true;
   set_ = false;
   linkUp_ = false;
   const bool first = backOff_ == 0;
   failed( ENODEV, reason );
   // At once, unless it is lost again as soon as it is made.
   if ( first ) retryAt_ = 0;
   settled();
}

void KeptPort::failed( int code, const Gant::String & reason ) {
   code_ = code;
   reason_ = reason.empty() ? Gant::String( std::strerror( code ) ) : reason;
   if ( wish_ && reason_.find( wish_->device ) == Gant::String::npos )
      reason_ = "device " + wish_->device + ": " + reason_;
   backOff_ = std::min( denied( code ) ? mostBackOffDenied : mostBackOff, std::max( firstBackOff, 2 * backOff_ ) );
   retryAt_ = loopTime() + backOff_;
   tell();
}

void KeptPort::worked() {
   code_ = 0;
   reason_.clear();
   retryAt_ = backOff_ = 0;
   tell();
}

void KeptPort::tell() {
   if ( std::exchange( told_, reason_ ) == reason_ ) return;
   if ( reason_.empty() )
      spdlog::info( "port {}: device {} is up", name_, wish_->device );
   else if ( leftOut() )
      spdlog::info( "port {}: {}; there is none", name_, reason_ );
   else
      spdlog::warn( "port {}: {}{}", name_, reason_, there_ && !broken_ && set_ && code_ == 0 ? "" : "; trying again" );
}

void KeptPort::settled() {
   call_ = nullptr;
   changing_ = false;
   events_.changed();
   review();
}

} // namespace Host
