#include "HostFpmRoutes.h"

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

namespace Host {

namespace {

using Mirel::RouteType;

constexpr const char * notToldYet = "a next hop that was not told";
constexpr const char * noSpace = "the prefix is not one that can be routed";

template < typename Book >
constexpr bool isV6 = std::is_same_v< Book, RouteBook< Kynet::Ip6Prefix > >;

} // namespace

FpmRoutes::FpmRoutes( RouterState & state, IntfAt intfAt, FpmAnswers * answers ) :
     state_( state ), intfAt_( std::move( intfAt ) ), answers_( answers ) {
   tables_ = { { RT_TABLE_UNSPEC, 0 }, { RT_TABLE_DEFAULT, 0 }, { RT_TABLE_MAIN, 0 } };
}

FpmRoutes::~FpmRoutes() {
   lost();
   swept();
}

std::string FpmRoutes::frame( const FpmStream::Messages & messages ) {
   for ( size_t at = 0; at < messages.size(); ++at ) {
      const auto & header = *messages[ at ];
      ++messages_;
      const char * wrong = nullptr;
      switch ( header.nlmsg_type ) {
      case RTM_DELROUTE: {
         wrong = readRoute( header, route_ );
         if ( wrong != nullptr ) break;
         const auto key = keyOf( route_ );
         // Told again behind it: one change.
         if ( at + 1 < messages.size() && messages[ at + 1 ]->nlmsg_type == RTM_NEWROUTE &&
              readRoute( *messages[ at + 1 ], route_ ) == nullptr && keyOf( route_ ) == key )
            break;
         wrong = readRoute( header, route_ );
         if ( wrong == nullptr ) drop( route_ );
         break;
      }
      case RTM_NEWROUTE:
         wrong = readRoute( header, route_ );
         if ( wrong == nullptr ) route( route_ );
         break;
      case RTM_NEWNEXTHOP:
         wrong = readNextHop( header, nextHop_ );
         if ( wrong == nullptr ) nextHop();
         break;
      case RTM_DELNEXTHOP:
         wrong = readNextHop( header, nextHop_ );
         if ( wrong == nullptr ) nextHopDel( nextHop_.id );
         break;
      default: break;
      }
      if ( wrong != nullptr ) return wrong;
   }
   return {};
}

// -- Routes

void FpmRoutes::route( const RouteMessage & message ) {
   if ( message.of == RouteMessage::Of::otherFamily ) return;
   // In the place of what was told before.
   if ( message.protocol == RTPROT_KERNEL ) return drop( message );
   const auto * const why = tell( message );
   if ( why == nullptr ) {
      if ( !pending_.empty() ) pending_.erase( keyOf( message ) );
      return;
   }
   drop( message );
   pending_[ keyOf( message ) ] = { message.protocol, message.type,    message.nextHopId,
                                    message.hops,     message.strange, why };
}

const char * FpmRoutes::tell( const RouteMessage & message ) {
   if ( message.strange != nullptr ) return message.strange;
   if ( message.type != RTN_UNICAST && !dropsPackets( message.type ) )
      return "a route that is neither unicast nor a blackhole";
   if ( message.prefix.af() == Kynet::AddressFamily::ipv4_ )
      return tell( state_.routes4(), message, message.prefix.v4Prefix() );
   return tell( state_.routes6(), message, message.prefix.v6Prefix() );
}

template < typename Book, typename P >
const char * FpmRoutes::tell( Book & book, const RouteMessage & message, const P & prefix ) {
   if ( dropsPackets( message.type ) ) {
      const auto vrfId = vrfOf( message.table, {} );
      if ( !vrfId ) return "a table of no VRF";
      const auto fecId = book.fecs().acquire( *vrfId, { RouteType::drop(), {} } );
      const auto * const why = put( book, message, prefix, *vrfId, { fecId, RouteType::drop_, *vrfId } );
      book.fecs().release( fecId );
      return why;
   }
   if ( message.nextHopId == 0 ) {
      if ( last_.fec.id != 0 && last_.v6 == isV6< Book > && last_.table == message.table && last_.hops == message.hops )
         return put( book, message, prefix, last_.vrfId, last_.fec );
      const auto resolved = waysOf( state_, intfAt_, message.hops, message.prefix.af() );
      if ( resolved.wrong != nullptr ) return resolved.wrong;
      const auto vrfId = vrfOf( message.table, resolved.vrfId );
      if ( vrfId != resolved.vrfId ) return "a next hop in another VRF";
      forgetLast();
      last_.hops = message.hops;
      last_.v6 = isV6< Book >;
      last_.table = message.table;
      last_.vrfId = *vrfId;
      last_.fec = { book.fecs().acquire( *vrfId, resolved.ways ), resolved.ways.kind.value(), *vrfId };
      return put( book, message, prefix, *vrfId, last_.fec );
   }
   const auto at = nextHops_.find( message.nextHopId );
   if ( at == nextHops_.end() ) return notToldYet;
   Fec fec = isV6< Book > ? at->second.fec6 : at->second.fec4;
   if ( fec.id == 0 )
      if ( const auto * const why = fecOf( book, at->second, message.table, fec ) ) return why;
   const auto vrfId = vrfOf( message.table, fec.kind == RouteType::drop_ ? std::optional< U32 >() : fec.vrfId );
   if ( !vrfId ) return "a table of no VRF";
   if ( fec.kind == RouteType::forward_ && *vrfId != fec.vrfId ) return "a next hop in another VRF";
   return put( book, message, prefix, *vrfId, fec );
}

template < typename Book, typename P >
const char * FpmRoutes::put( Book & book, const RouteMessage & message, const P & prefix, U32 vrfId, Fec fec ) {
   auto & origin = origins_[ message.protocol ];
   if ( origin == 0 )
      origin = state_.origins().id( { Teller::fpm(), message.protocol, distanceOfProtocol( message.protocol ), 0 } );
   if ( !wrongPrefix( prefix ).empty() ) return noSpace;
   const auto slot = book.routeIs( vrfId, prefix, origin, fec.kind, fec.id );
   if ( !slot ) return noSpace;
   if ( answers_ != nullptr ) answers_->told< P >( message.table, vrfId, *slot );
   return nullptr;
}

void FpmRoutes::drop( const RouteMessage & message ) {
   if ( !pending_.empty() ) pending_.erase( keyOf( message ) );
   if ( message.of != RouteMessage::Of::prefix ) return;
   const auto vrf = tables_.find( message.table );
   if ( vrf == tables_.end() ) return;
   if ( message.prefix.af() == Kynet::AddressFamily::ipv4_ )
      state_.routes4().routeDel( vrf->second, message.prefix.v4Prefix(), Teller::fpm() );
   else
      state_.routes6().routeDel( vrf->second, message.prefix.v6Prefix(), Teller::fpm() );
}

// Of a table that was not met before, or only with a VRF that is gone, the VRF that its next hops are in.
std::optional< U32 > FpmRoutes::vrfOf( U32 table, const std::optional< U32 > & vrfId ) {
   if ( const auto at = tables_.find( table );
        at != tables_.end() && state_.vrfBook().name( at->second ) != L3::VrfName() )
      return at->second;
   if ( vrfId ) tables_[ table ] = *vrfId;
   return vrfId;
}

// -- Next hops

void FpmRoutes::nextHop() {
   auto & entry = nextHops_[ nextHop_.id ];
   for ( const auto & [ member, weight ] : entry.told.group ) std::erase( groupsOf_[ member ], nextHop_.id );
   for ( const auto & [ member, weight ] : nextHop_.group ) groupsOf_[ member ].push_back( nextHop_.id );
   entry.told = nextHop_;
   changed( entry );
   if ( const auto groups = groupsOf_.find( nextHop_.id ); groups != groupsOf_.end() )
      for ( const auto group : groups->second )
         if ( const auto at = nextHops_.find( group ); at != nextHops_.end() ) changed( at->second );
   awaited_ = true;
}

// Its routes keep its FEC until they are told other next hops.
void FpmRoutes::nextHopDel( U32 id ) {
   const auto at = nextHops_.find( id );
   if ( at == nextHops_.end() ) return;
   for ( const auto & [ member, weight ] : at->second.told.group )
      if ( const auto groups = groupsOf_.find( member ); groups != groupsOf_.end() ) {
         std::erase( groups->second, id );
         if ( groups->second.empty() ) groupsOf_.erase( groups );
      }
   if ( at->second.fec4.id != 0 ) state_.routes4().fecs().release( at->second.fec4.id );
   if ( at->second.fec6.id != 0 ) state_.routes6().fecs().release( at->second.fec6.id );
   nextHops_.erase( at );
}

void FpmRoutes::changed( NextHop & nextHop ) {
   if ( nextHop.fec4.id != 0 ) changed( state_.routes4(), nextHop, nextHop.fec4 );
   if ( nextHop.fec6.id != 0 ) changed( state_.routes6(), nextHop, nextHop.fec6 );
}

template < typename Book >
void FpmRoutes::changed( Book & book, NextHop & nextHop, Fec & fec ) {
   constexpr auto af = isV6< Book > ? Kynet::AddressFamily::ipv6_ : Kynet::AddressFamily::ipv4_;
   const auto resolved = resolve( nextHop.told, af );
   // What a next hop becomes that leads nowhere any more: its packets are dropped.
   const auto ways = resolved.wrong == nullptr ? resolved.ways : Ways{ RouteType( fec.kind ), {} };
   const auto vrfId = resolved.vrfId.value_or( fec.vrfId );
   if ( fec.kind != RouteType::drop_ && vrfId != fec.vrfId ) {
      // Of its routes, those that are told from here on are in the other VRF. The others keep ways that lead nowhere,
      // until the interfaces are back.
      book.fecs().release( std::exchange( fec, {} ).id );
      return;
   }
   if ( ways.kind == fec.kind ) {
      book.fecs().change( fec.id, ways );
      return;
   }
   // The kind is the routes' own.
   const Fec other{ book.fecs().own( vrfId, ways ), ways.kind.value(), vrfId };
   for ( const auto & [ vrf, prefix ] : book.prefixes( Teller::fpm() ) )
      for ( const auto & offer : book.offers( vrf, prefix ) )
         if ( offer.fecId == fec.id && book.originOf( offer ).teller == Teller::fpm_ )
            book.routeIs( vrf, prefix, offer.origin, other.kind, other.id );
   book.fecs().release( std::exchange( fec, other ).id );
}

// The FEC of a next hop that a route begins to use.
template < typename Book >
const char * FpmRoutes::fecOf( Book & book, NextHop & nextHop, std::optional< U32 > table, Fec & fec ) {
   constexpr auto af = isV6< Book > ? Kynet::AddressFamily::ipv6_ : Kynet::AddressFamily::ipv4_;
   const auto resolved = resolve( nextHop.told, af );
   if ( resolved.wrong != nullptr ) return resolved.wrong;
   const auto vrfId = resolved.vrfId ? resolved.vrfId : vrfOf( *table, {} );
   if ( !vrfId ) return "a table of no VRF";
   fec = { makeFec( book, *vrfId, resolved.ways ), resolved.ways.kind.value(), *vrfId };
   ( isV6< Book > ? nextHop.fec6 : nextHop.fec4 ) = fec;
   return nullptr;
}

template < typename Book >
U64 FpmRoutes::makeFec( Book & book, U32 vrfId, const Ways & ways ) {
   const auto at = std::ranges::find_if( former_, [ & ]( const auto & former ) {
      return former.v6 == isV6< Book > && former.vrfId == vrfId && book.fecs().ways( former.fecId ) == ways;
   } );
   if ( at == former_.end() ) return book.fecs().own( vrfId, ways );
   const auto fecId = at->fecId;
   *at = former_.back();
   former_.pop_back();
   return fecId;
}

void FpmRoutes::addHops( const NextHopMessage & told, std::vector< NetlinkHop > & hops, const char *& wrong ) const {
   if ( told.strange != nullptr ) wrong = told.strange;
   if ( told.group.empty() ) {
      hops.push_back( told.hop );
      return;
   }
   for ( const auto & [ id, weight ] : told.group ) {
      const auto at = nextHops_.find( id );
      if ( at == nextHops_.end() || !at->second.told.group.empty() || at->second.told.blackhole ) continue;
      if ( at->second.told.strange != nullptr ) wrong = at->second.told.strange;
      hops.push_back( at->second.told.hop );
      hops.back().weight = weight;
   }
   if ( hops.empty() ) wrong = notToldYet;
}

NetlinkWays FpmRoutes::resolve( const NextHopMessage & told, Kynet::AddressFamily af ) {
   if ( told.blackhole ) return { { RouteType::drop(), {} }, {}, nullptr };
   std::vector< NetlinkHop > hops;
   const char * wrong = nullptr;
   addHops( told, hops, wrong );
   if ( wrong != nullptr ) return { {}, {}, wrong };
   return waysOf( state_, intfAt_, hops, af );
}

// -- What waits

void FpmRoutes::settle() {
   if ( !std::exchange( awaited_, false ) || pending_.empty() ) return;
   retry( notToldYet );
}

void FpmRoutes::review() {
   forgetLast();
   for ( auto & [ id, nextHop ] : nextHops_ ) changed( nextHop );
   retry( nullptr );
}

// Those that wait for that; null: all.
void FpmRoutes::retry( const char * why ) {
   std::vector< Key > keys;
   for ( const auto & [ key, pending ] : pending_ )
      if ( why == nullptr || pending.why == why ) keys.push_back( key );
   for ( const auto & key : keys ) {
      const auto & pending = pending_.at( key );
      RouteMessage message;
      message.prefix = key.prefix;
      message.table = key.table;
      message.of = key.of;
      message.strange = pending.strange;
      message.protocol = pending.protocol;
      message.type = pending.type;
      message.nextHopId = pending.nextHopId;
      message.hops = pending.hops;
      route( message );
   }
}

std::vector< SourceRefusal > FpmRoutes::refusals() const {
   std::map< std::string, SourceRefusal > byReason;
   for ( const auto & [ key, pending ] : pending_ ) {
      auto & refusal = byReason[ pending.why ];
      refusal.reason = pending.why;
      if ( refusal.count++ == 0 ) refusal.example = key.prefix.stringValue();
   }
   std::vector< SourceRefusal > refusals;
   refusals.reserve( byReason.size() );
   for ( auto & [ reason, refusal ] : byReason ) refusals.push_back( std::move( refusal ) );
   return refusals;
}

void FpmRoutes::eachRefused( size_t most, const Source::EachRefused & each ) const {
   for ( const auto & [ key, pending ] : pending_ ) {
      if ( most-- == 0 ) return;
      each( "FPM's route " + key.prefix.stringValue() + " of table " + std::to_string( key.table ), pending.why );
   }
}

// -- Connections

void FpmRoutes::forgetLast() {
   if ( last_.fec.id == 0 ) return;
   if ( last_.v6 )
      state_.routes6().fecs().release( last_.fec.id );
   else
      state_.routes4().fecs().release( last_.fec.id );
   last_.fec = {};
}

void FpmRoutes::lost() {
   forgetLast();
   for ( const auto & [ id, nextHop ] : nextHops_ ) {
      if ( nextHop.fec4.id != 0 ) former_.push_back( { false, nextHop.fec4.vrfId, nextHop.fec4.id } );
      if ( nextHop.fec6.id != 0 ) former_.push_back( { true, nextHop.fec6.vrfId, nextHop.fec6.id } );
   }
   nextHops_.clear();
   groupsOf_.clear();
   pending_.clear();
   awaited_ = false;
}

void FpmRoutes::swept() {
   for ( const auto & former : former_ )
      if ( former.v6 )
         state_.routes6().fecs().release( former.fecId );
      else
         state_.routes4().fecs().release( former.fecId );
   former_.clear();
}

} // namespace Host
