#include "HulIpsecConnectionTableSm.h"

#include "GantTrace.h"

namespace HulIpsec {

using Ipsec::Ike::Connection;
using Ipsec::Ike::ConnectionKey;
using Ipsec::Ike::ConnectionTable;

static Gant::TraceHandle traceHandle( "HulIpsecConnectionTableSm" );

namespace {

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

HulConnectionTableSm::HulConnectionTableSm( Args args ) : args_( std::move( args ) ) {
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
      args_.platformHelper->deleteConnection( key.vrfName(), key.encapId() );
   }
}

void HulConnectionTableSm::create( const ConnectionKey & key, const Connection & wanted ) {
   GANT_TRACE( 2, "HulConnectionTableSm::create ", key.vrfName(), " ", key.encapId().reqid(), " ", wanted.name() );
   told_[ key ] = wanted;
   args_.platformHelper->newConnection( key.vrfName(), key.encapId(),
                                        wanted.intfList().intfs() == 0 ? nullptr : &wanted.intfList(),
                                        outSaOf( wanted ), wanted.inSaq() );
}

void HulConnectionTableSm::update( const ConnectionKey & key, const Connection & wanted ) {
   const auto before = std::exchange( told_[ key ], wanted );
   auto & helper = *args_.platformHelper;
   if ( before.intfList() != wanted.intfList() )
      helper.changeIntfList( key.vrfName(), key.encapId(), wanted.intfList() );
   if ( before.inSaq() != wanted.inSaq() )
      helper.changeInSecurityAssociation( key.vrfName(), key.encapId(), wanted.inSaq() );
   if ( before.outSa() != wanted.outSa() )
      helper.changeOutSecurityAssociation( key.vrfName(), key.encapId(), outSaOf( wanted ) );
}

} // namespace HulIpsec
