#include "HulL2AdjHelper.h"

#include "GantTrace.h"
#include "HulHelper.h"
#include "HulL3Status.h"

namespace Hul {

static Gant::TraceHandle traceHandle( "HulL2AdjHelper" );

L2AdjHelper::L2AdjHelper( Args args ) : args_( std::move( args ) ) {}

L2AdjHelper::~L2AdjHelper() = default;

Gant::Ptr< L2Adjacency > L2AdjHelper::newAdj() {
   const L2AdjKey key( nextL2AdjIndex() );
   nextL2AdjIndexIs( key.index() + 1 );
   auto adj = Gant::make< L2Adjacency >( key );
   args_.hulL3Status->l2AdjListIs( key, adj );
   return adj;
}

bool L2AdjHelper::create( const Gant::Ptr< L2Adjacency > & adj ) {
   const bool created = args_.adjHelper->createAdj( adj ) == AdjUpdateStatus::adjUpdateSucceeded_;
   GANT_TRACE( 4, "L2AdjHelper::create ", adj->key().index(), created ? "" : " refused" );
   return created;
}

AdjUpdateReturnType L2AdjHelper::update( const Gant::Ptr< L2Adjacency > & adj ) {
   const auto answer = args_.adjHelper->updateAdj( adj );
   GANT_TRACE( 4, "L2AdjHelper::update ", adj->key().index(), " ", answer.updateStatus(),
               answer.prefixWalkRequired() ? " walk required" : "" );
   return answer;
}

void L2AdjHelper::del( const Gant::Ptr< L2Adjacency > & adj, bool created ) {
   GANT_TRACE( 4, "L2AdjHelper::del ", adj->key().index() );
   if ( created ) args_.adjHelper->deleteAdj( adj );
   args_.hulL3Status->l2AdjListDel( adj->key() );
}

void L2AdjHelper::verify( const Gant::Ptr< L2Adjacency > & adj ) { args_.adjHelper->verifyAdj( adj ); }

} // namespace Hul
