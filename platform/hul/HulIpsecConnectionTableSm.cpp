#include "HulIpsecConnectionTableSm.h"

#include "GantTrace.h"

namespace HulIpsec {

using Ipsec::Ike::Connection;
using Ipsec::Ike::ConnectionKey;
using Ipsec::Ike::ConnectionTable;

static Gant::TraceHandle traceHandle( "HulIpsecConnectionTableSm" );

namespace {

constexpr HulConnectionTableSm::Part parts[] = { HulConnectionTableSm::Part::intfs,
                                                 HulConnectionTableSm::Part::inboundSas,
                                                 HulConnectionTableSm::Part::outboundSa };

const char * nameOf( HulConnectionTableSm::Part part ) {
   switch ( part ) {
   case HulConnectionTableSm::Part::intfs: return "interfaces";
   case HulConnectionTableSm::Part::inboundSas: return "inbound associations";
   case HulConnectionTableSm::Part::outboundSa: return "outbound association";
   }
   return "";
}

const Ipsec::Ike::SecurityAssociation * outSaOf( const Connection & connection ) {
   return connection.outSa() ? &*connection.outSa() : nullptr;
}

} // namespace

struct HulConnectionTableSm::GantConnectionTable : ConnectionTable::Notifiee {
   explicit GantConnectionTable( HulConnectionTableSm * owner ) :
        Notifiee( owner, owner->args_.connectionTable ), owner( owner ) {}
   void onConnection( const ConnectionKey & key ) override { owner->review( key ); }
   void onRenotify() override { owner->reviewAll(); }
   HulConnectionTableSm * owner;
};

HulConnectionTableSm::HulConnectionTableSm( Args args ) :
     args_( std::move( args ) ), answers_( this, args_.progress ? args_.progress : Gant::make< Hul::Progress >() ) {
   if ( !args_.platformHelper || !args_.connectionTable ) return;
   tableReactor_ = std::make_unique< GantConnectionTable >( this );
   args_.platformHelper->beginConnectionTableInit();
   reviewAll();
   args_.platformHelper->completedConnectionTableInit();
}

HulConnectionTableSm::~HulConnectionTableSm() = default;

void HulConnectionTableSm::reviewAll() {
   // Those that went first: a tunnel may have passed from one connection to another.
   for ( const auto & key : Gant::keysOf( told_ ) )
      if ( !args_.connectionTable->connectionHas( key ) ) review( key );
   for ( const auto & key : args_.connectionTable->connectionKeys() ) review( key );
}

void HulConnectionTableSm::review( const ConnectionKey & key ) {
   const bool told = told_.contains( key );
   if ( args_.connectionTable->connectionHas( key ) ) {
      // A copy: what the helper does with it may come back here.
      const auto wanted = args_.connectionTable->connection( key );
      told ? update( key, wanted ) : create( key, wanted );
   } else if ( told ) {
      GANT_TRACE( 2, "HulConnectionTableSm::review ", key.vrfName(), " ", key.encapId().reqid(), " deleted" );
      told_.erase( key );
      for ( const auto part : parts ) answers_.forget( { key, part } );
      args_.platformHelper->deleteConnection( key.vrfName(), key.encapId() );
   }
}

void HulConnectionTableSm::create( const ConnectionKey & key, const Connection & wanted ) {
   GANT_TRACE( 2, "HulConnectionTableSm::create ", key.vrfName(), " ", key.encapId().reqid(), " ", wanted.name() );
   told_[ key ] = wanted;
   // All of it in one call: what is refused of it is of each part until that is told again.
   for ( const auto part : parts ) answers_.begin( { key, part } );
   answers_.asked( { key, Part::intfs }, [ & ] {
      answers_.asked( { key, Part::inboundSas }, [ & ] {
         answers_.asked( { key, Part::outboundSa }, [ & ] {
            args_.platformHelper->newConnection( key.vrfName(), key.encapId(),
                                                 wanted.intfList().intfs() == 0 ? nullptr : &wanted.intfList(),
                                                 outSaOf( wanted ), wanted.inSaq() );
         } );
      } );
   } );
}

template < typename Call >
void HulConnectionTableSm::tell( const ConnectionKey & key, Part part, const Call & call ) {
   answers_.begin( { key, part } );
   answers_.asked( { key, part }, call );
}

void HulConnectionTableSm::update( const ConnectionKey & key, const Connection & wanted ) {
   const auto before = std::exchange( told_[ key ], wanted );
   auto & helper = *args_.platformHelper;
   if ( before.intfList() != wanted.intfList() )
      tell( key, Part::intfs, [ & ] { helper.changeIntfList( key.vrfName(), key.encapId(), wanted.intfList() ); } );
   if ( before.inSaq() != wanted.inSaq() )
      tell( key, Part::inboundSas,
            [ & ] { helper.changeInSecurityAssociation( key.vrfName(), key.encapId(), wanted.inSaq() ); } );
   if ( before.outSa() != wanted.outSa() )
      tell( key, Part::outboundSa,
            [ & ] { helper.changeOutSecurityAssociation( key.vrfName(), key.encapId(), outSaOf( wanted ) ); } );
}

Hul::RouteState HulConnectionTableSm::state( const ConnectionKey & key, Part part ) const {
   return answers_.state( { key, part } );
}

Hul::Pendings HulConnectionTableSm::pending() const {
   Hul::Pendings out;
   for ( const auto & [ key, connection ] : told_ )
      for ( const auto part : parts )
         if ( auto said = answers_.state( { key, part } ); said.progress != Hul::RouteProgress::programmed_ )
            out.push_back( { "connection " + connection.name() + ", " + nameOf( part ), std::move( said.reason ) } );
   return out;
}

} // namespace HulIpsec
