#include "HostKernelSource.h"

#include "HostKernelNextHops.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/filter.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace Host {

namespace {

constexpr double readAfterSeconds = 0.1, readEverySeconds = 1, readAfterLossSeconds = 3;

// Routing suites' own protocols of RTPROT_*: what FPM tells where it is connected.
bool ofSuite( U8 protocol ) {
   return ( protocol >= RTPROT_BGP && protocol <= 198 ) || protocol == RTPROT_ZEBRA || protocol == RTPROT_BABEL;
}

// Routes that this process writes stay in the kernel: a notification is one message, and its bytes lie where the header
// and rtmsg have them.
void keepOwnAway( int fd ) {
   constexpr U32 typeAt = offsetof( nlmsghdr, nlmsg_type ), protocolAt = NLMSG_HDRLEN + offsetof( rtmsg, rtm_protocol );
   constexpr auto swapped = []( U16 word ) { return U32( U16( word << 8 | word >> 8 ) ); };
   std::array< sock_filter, 7 > code{ {
        BPF_STMT( BPF_LD | BPF_H | BPF_ABS, typeAt ),
        BPF_JUMP( BPF_JMP | BPF_JEQ | BPF_K, swapped( RTM_NEWROUTE ), 1, 0 ),
        BPF_JUMP( BPF_JMP | BPF_JEQ | BPF_K, swapped( RTM_DELROUTE ), 0, 2 ),
        BPF_STMT( BPF_LD | BPF_B | BPF_ABS, protocolAt ),
        BPF_JUMP( BPF_JMP | BPF_JEQ | BPF_K, kernelRouteProtocol, 1, 0 ),
        BPF_STMT( BPF_RET | BPF_K, ~0u ),
        BPF_STMT( BPF_RET | BPF_K, 0 ),
   } };
   const sock_fprog program{ code.size(), code.data() };
   // Without it things go on, with more to read.
   (void)::setsockopt( fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof( program ) );
}

} // namespace

// -- One namespace

KernelRouteReader::KernelRouteReader( KernelSource & source, Args args ) :
     source_( source ), args_( std::move( args ) ) {
   constexpr std::array< U32, 3 > groups = { RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE, RTNLGRP_NEXTHOP };
   const int watching = openNetlink( args_.netns, groups );
   keepOwnAway( watching );
   notifications_ = std::make_unique< NetlinkReader >(
        watching, [ this ]( const nlmsghdr & header ) { handle( header, false ); },
        [ this ]( int error ) { source_.lost( std::strerror( error ) ); } );
   requests_ = std::make_unique< NetlinkSocket >( openNetlink( args_.netns, {} ), [] {} );
   if ( args_.outcomeOf )
      answers_ = std::make_unique< KernelAnswers >(
           args_.netns,
           KernelAnswers::Surroundings{ [ this ]( const RouteMessage & message ) { return outcomeOf( message ); },
                                        [ this ] { notifications_->read( ~0u ); } } );
   suiteElsewhere_ = source.suiteElsewhere();
   source_.add( *this );
}

KernelRouteReader::~KernelRouteReader() {
   *alive_ = false;
   source_.remove( *this );
}

// What is notified meanwhile is read afterwards: it is newer.
void KernelRouteReader::read() {
   // What was notified by now is older, what of answers is under way is among it.
   notifications_->drain();
   if ( answers_ ) {
      answers_->clear();
      answers_->heldIs( true );
   }
   ++round_;
   interrupted_ = false;
   notifications_->heldIs( true );
   several_.clear();
   refused_.clear();
   nextHops_.clear();
   used_.clear();
   readTable( Table::nextHops );
}

void KernelRouteReader::readTable( Table table ) {
   NetlinkBatch batch;
   if ( table == Table::nextHops ) {
      batch.message( RTM_GETNEXTHOP, 0, nhmsg{} );
   } else {
      rtmsg body{};
      body.rtm_family = table == Table::routes4 ? AF_INET : AF_INET6;
      batch.message( RTM_GETROUTE, 0, body );
   }
   // A reading that was begun anew goes no further.
   requests_->dump(
        std::move( batch ),
        [ this, round = round_ ]( const nlmsghdr & header ) {
           if ( round == round_ ) handle( header, true );
        },
        [ this, alive = alive_, table, round = round_ ]( const NetlinkRefusals & refusals ) {
           if ( *alive && round == round_ ) handleRead( table, refusals );
        } );
}

void KernelRouteReader::handleRead( Table table, const NetlinkRefusals & refusals ) {
   // Another error says that there is no such table.
   interrupted_ |= !refusals.empty() && ( refusals.front().error == EINTR || refusals.front().error == ENOBUFS );
   if ( table != Table::routes6 ) return readTable( Table( int( table ) + 1 ) );
   notifications_->heldIs( false );
   if ( answers_ ) answers_->heldIs( false );
   source_.readIs( !interrupted_ );
}

void KernelRouteReader::handle( const nlmsghdr & header, bool dumped ) {
   ++messages_;
   bytes_ += header.nlmsg_len;
   switch ( header.nlmsg_type ) {
   case RTM_NEWROUTE:
   case RTM_DELROUTE: route( header, dumped ); break;
   case RTM_NEWNEXTHOP:
   case RTM_DELNEXTHOP: handleNextHop( header, dumped ); break;
   default: break;
   }
}

void KernelRouteReader::handleNextHop( const nlmsghdr & header, bool dumped ) {
   if ( readNextHop( header, nextHop_ ) != nullptr || nextHop_.protocol == kernelRouteProtocol ) return;
   if ( nextHop_.del )
      nextHops_.erase( nextHop_.id );
   else
      nextHops_[ nextHop_.id ] = nextHop_;
   // Its routes have gone, or lead elsewhere, and that is not said of each.
   if ( !dumped && used_.contains( nextHop_.id ) ) source_.readSoon();
}

bool KernelRouteReader::ofInterest( const RouteMessage & message ) const {
   if ( message.of == RouteMessage::Of::otherFamily ) return false;
   if ( message.protocol == kernelRouteProtocol || message.protocol == RTPROT_KERNEL ) return false;
   if ( message.table == RT_TABLE_LOCAL || ( message.flags & RTM_F_CLONED ) != 0 ) return false;
   return message.type == RTN_UNICAST || dropsPackets( message.type );
}

void KernelRouteReader::route( const nlmsghdr & header, bool dumped ) {
   if ( readRoute( header, route_ ) != nullptr || !ofInterest( route_ ) ) return;
   if ( answers_ && answers_->isEcho( header ) ) return answers_->handleEcho( route_ );
   if ( suiteElsewhere_ && ofSuite( route_.protocol ) ) return answer( header, dumped );
   const Key key{ route_.prefix, route_.metric, route_.table, route_.of };
   if ( route_.table != RT_TABLE_MAIN || route_.of != RouteMessage::Of::prefix ) {
      if ( route_.del )
         refused_.erase( key );
      else
         refused_[ key ] = tell( route_ );
      return;
   }
   if ( route_.del ) {
      // Another one of the prefix takes its place, which is not said.
      if ( several_.contains( key ) ) return source_.readSoon();
      if ( !refused_.empty() ) refused_.erase( key );
      answer( header, dumped );
      drop( route_ );
      return;
   }
   const bool v6 = route_.prefix.af() == Kynet::AddressFamily::ipv6_;
   const bool beside = dumped ? has( route_ ) : route_.append && !v6 && has( route_ );
   if ( beside ) {
      several_.insert( key );
      return;
   }
   const bool before = !dumped && ( header.nlmsg_flags & ( NLM_F_REPLACE | NLM_F_EXCL | NLM_F_APPEND ) ) == 0;
   if ( before && has( route_ ) ) several_.insert( key );
   if ( !refused_.empty() ) refused_.erase( key );
   if ( const auto * const why = tell( route_ ) ) {
      refused_[ key ] = why;
      drop( route_ );
   } else {
      answer( header, dumped );
   }
}

void KernelRouteReader::answer( const nlmsghdr & header, bool dumped ) {
   if ( !answers_ || route_.table != RT_TABLE_MAIN || route_.tos != 0 || route_.strange != nullptr ) return;
   if ( route_.del )
      answers_->gone( route_ );
   else
      answers_->told( header, route_, dumped ? KernelAnswers::How::read : KernelAnswers::How::notified,
                      ofSuite( route_.protocol ) );
}

std::optional< RouteOutcome > KernelRouteReader::outcomeOf( const RouteMessage & message ) {
   const auto & book = args_.state.routes4();
   const auto slot = book.table().slot( args_.vrfId, message.prefix.v4Prefix() );
   if ( !slot ) return std::nullopt;
   const auto & origin = book.originAt( *slot );
   if ( origin.protocol != message.protocol ) return std::nullopt;
   if ( origin.teller == Teller::fpm_ ) {
      if ( !leadsAlike( message, book.fecs().ways( book.table().routeAt( *slot ).fecId() ) ) ) return std::nullopt;
   } else if ( origin.teller != Teller::kernel_ || origin.metric != message.metric ) {
      return std::nullopt;
   }
   return args_.outcomeOf( book.af, *slot );
}

// FPM may be behind the kernel, or before it.
bool KernelRouteReader::leadsAlike( const RouteMessage & message, const Ways & ways ) {
   if ( dropsPackets( message.type ) ) return ways.kind == Mirel::RouteType::drop_;
   const auto found = waysOf( args_.state, args_.intfAt, hopsOf( message ), message.prefix.af() );
   if ( found.wrong != nullptr || found.ways.kind != ways.kind ) return false;
   return std::ranges::is_permutation( found.ways.hops, ways.hops, []( const Hop & a, const Hop & b ) {
      return a.addr() == b.addr() && a.intfId() == b.intfId();
   } );
}

// Told since the last reading began.
bool KernelRouteReader::has( const RouteMessage & message ) const {
   const auto told = [ & ]( const auto & book, const auto & prefix ) {
      return book.fresh( args_.vrfId, prefix, Teller::kernel(), message.metric );
   };
   return message.prefix.af() == Kynet::AddressFamily::ipv4_ ? told( args_.state.routes4(), message.prefix.v4Prefix() )
                                                             : told( args_.state.routes6(), message.prefix.v6Prefix() );
}

void KernelRouteReader::drop( const RouteMessage & message ) {
   const auto del = [ & ]( auto & book, const auto & prefix ) {
      book.routeDel( args_.vrfId, prefix, Teller::kernel(), message.metric );
   };
   if ( message.prefix.af() == Kynet::AddressFamily::ipv4_ )
      del( args_.state.routes4(), message.prefix.v4Prefix() );
   else
      del( args_.state.routes6(), message.prefix.v6Prefix() );
}

const char * KernelRouteReader::tell( const RouteMessage & message ) {
   if ( message.strange != nullptr ) return message.strange;
   if ( message.table != RT_TABLE_MAIN ) return "another table";
   return message.prefix.af() == Kynet::AddressFamily::ipv4_
               ? tell( args_.state.routes4(), message, message.prefix.v4Prefix() )
               : tell( args_.state.routes6(), message, message.prefix.v6Prefix() );
}

template < typename Book, typename P >
const char * KernelRouteReader::tell( Book & book, const RouteMessage & message, const P & prefix ) {
   if ( !wrongPrefix( prefix ).empty() ) return "the prefix is not one that can be routed";
   if ( message.nextHopId != 0 ) used_.insert( message.nextHopId );
   NetlinkWays found{ { Mirel::RouteType::drop(), {} }, args_.vrfId, nullptr };
   if ( !dropsPackets( message.type ) ) {
      const auto & hops = hopsOf( message );
      // Of a group that ends in a blackhole there is none.
      if ( !hops.empty() || message.nextHopId == 0 )
         found = waysOf( args_.state, args_.intfAt, hops, message.prefix.af() );
   }
   if ( found.wrong != nullptr ) return found.wrong;
   // The kernel keeps next-hop objects whose subnet has gone, and uses them.
   for ( auto & hop : found.ways.hops ) hop.onlinkIs( hop.addrHas() );
   if ( found.vrfId != args_.vrfId ) return "a next hop in another VRF";
   const auto origin = args_.state.origins().id(
        { Teller::kernel(), message.protocol, distanceOfProtocol( message.protocol ), message.metric } );
   if ( origin == 0 ) return "more metrics than can be told apart";
   const auto fecId = book.fecs().acquire( args_.vrfId, found.ways );
   book.routeIs( args_.vrfId, prefix, origin, found.ways.kind, fecId );
   book.fecs().release( fecId );
   return nullptr;
}

// The kernel tells the hops of an object with the route, unless net.ipv4.nexthop_compat_mode is 0.
const std::vector< NetlinkHop > & KernelRouteReader::hopsOf( const RouteMessage & message ) {
   if ( message.nextHopId == 0 || !message.hops.empty() ) return message.hops;
   hops_.clear();
   const auto at = nextHops_.find( message.nextHopId );
   if ( at == nextHops_.end() || at->second.blackhole ) return hops_;
   if ( at->second.group.empty() ) hops_.push_back( at->second.hop );
   for ( const auto & [ id, weight ] : at->second.group )
      if ( const auto member = nextHops_.find( id ); member != nextHops_.end() && !member->second.blackhole ) {
         used_.insert( id );
         hops_.push_back( member->second.hop );
         hops_.back().weight = weight;
      }
   return hops_;
}

void KernelRouteReader::addRefusals( std::map< std::string, SourceRefusal > & byReason ) const {
   for ( const auto & [ key, why ] : refused_ ) {
      auto & refusal = byReason[ why ];
      refusal.reason = why;
      if ( refusal.count++ == 0 ) refusal.example = key.prefix.stringValue();
   }
}

size_t KernelRouteReader::eachRefused( size_t most, const Source::EachRefused & each ) const {
   const auto place = args_.netns.empty() ? std::string() : " of namespace " + args_.netns;
   for ( const auto & [ key, why ] : refused_ ) {
      if ( most == 0 ) return 0;
      --most;
      each( "kernel's route " + key.prefix.stringValue() + " metric " + std::to_string( key.metric ) + place, why );
   }
   return most;
}

// -- All of them

struct KernelSource::GantClock : Gant::Clock::Notifiee {
   explicit GantClock( KernelSource * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
   void onTime() override { owner->handleClock(); }
   KernelSource * owner;
};

KernelSource::KernelSource( RouterState & state, Tell tell ) :
     state_( state ), tell_( std::move( tell ) ), clock_( Gant::activityManager()->newClock() ),
     clockReactor_( std::make_unique< GantClock >( this ) ) {
   state_.sources().sourceIs( Teller::kernel(), this );
}

KernelSource::~KernelSource() { state_.sources().sourceIs( Teller::kernel(), nullptr ); }

void KernelSource::add( KernelRouteReader & reader ) {
   readers_.push_back( &reader );
   since_ = std::chrono::duration< double >( std::chrono::system_clock::now().time_since_epoch() ).count();
   readSoon();
}

void KernelSource::remove( KernelRouteReader & reader ) {
   std::erase( readers_, &reader );
   reading_ = 0; // it begins anew
   readSoon();
}

void KernelSource::suiteIs( bool elsewhere ) {
   if ( std::exchange( suiteElsewhere_, elsewhere ) == elsewhere ) return;
   for ( auto * const reader : readers_ ) reader->suiteIs( elsewhere );
   readSoon();
}

void KernelSource::suiteStarted() {
   for ( auto * const reader : readers_ ) reader->suiteStarted();
   readSoon();
}

void KernelSource::readSoon() {
   if ( reading_ != 0 ) {
      again_ = true;
      return;
   }
   const auto at = std::max( clock_->now() + readAfterSeconds, readAt_ + readEverySeconds );
   if ( clock_->timeMin() == Gant::Clock::never ) clock_->timeMinIs( at );
}

void KernelSource::lost( const std::string & why ) {
   ++losses_;
   lastLoss_ = why;
   if ( clock_->timeMin() == Gant::Clock::never && reading_ == 0 )
      clock_->timeMinIs( std::max( clock_->now() + readAfterSeconds, readAt_ + readAfterLossSeconds ) );
   else
      again_ = true;
}

void KernelSource::handleClock() {
   readAt_ = clock_->now();
   again_ = false;
   reading_ = readers_.size();
   whole_ = true;
   state_.sources().begun( Teller::kernel() );
   if ( readers_.empty() ) state_.sources().complete( Teller::kernel() );
   for ( auto * const reader : readers_ ) reader->read();
}

void KernelSource::readIs( bool whole ) {
   whole_ = whole_ && whole;
   if ( reading_ == 0 || --reading_ != 0 ) return;
   // What is missing in a table that changed while it was read may be there.
   if ( whole_ )
      state_.sources().complete( Teller::kernel() );
   else
      lost( "the tables changed while they were read" );
   if ( std::exchange( again_, false ) ) readSoon();
}

SourceFacts KernelSource::facts() const {
   SourceFacts facts;
   facts.connected = !readers_.empty();
   facts.since = since_;
   for ( const auto * const reader : readers_ ) {
      facts.messages += reader->messages();
      facts.bytes += reader->bytes();
      facts.nextHops += reader->nextHops();
      facts.answered += reader->answered();
   }
   facts.losses = losses_;
   facts.lastLoss = lastLoss_;
   return facts;
}

std::vector< SourceRefusal > KernelSource::refusals() const {
   std::map< std::string, SourceRefusal > byReason;
   for ( const auto * const reader : readers_ ) reader->addRefusals( byReason );
   std::vector< SourceRefusal > refusals;
   refusals.reserve( byReason.size() );
   for ( auto & [ reason, refusal ] : byReason ) refusals.push_back( std::move( refusal ) );
   return refusals;
}

void KernelSource::eachRefused( size_t most, const EachRefused & each ) const {
   for ( const auto * const reader : readers_ ) most = reader->eachRefused( most, each );
}

std::string KernelSource::resync() {
   if ( readers_.empty() ) return "no interface has a device in the kernel";
   readSoon();
   return {};
}

} // namespace Host
