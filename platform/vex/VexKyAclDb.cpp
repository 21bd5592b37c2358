#include "VexKyAclDb.h"

#include "GantAssert.h"
#include "vex/acl.pb.h"
#include "VexMessage.h"

namespace Vex {

KyAclDb::KyAclDb( Gant::Ptr< ModuleConfigStatusPair > pair ) :
     Module( "kyAclDb", VexModule::KyAclDb, 0, 0, 0, 0, nullptr, std::move( pair ) ) {
   for ( U32 id = 0; id < maxAcls(); ++id ) freeAclIds_.push_back( static_cast< U16 >( id ) );
}

U16 KyAclDb::freeAclIdDeq() {
   GANT_ASSERT( freeAclIds() );
   const auto id = freeAclIds_.front();
   freeAclIds_.pop_front();
   return id;
}

void KyAclDb::freeAclIdEnq( U16 id ) { freeAclIds_.push_back( id ); }

void KyAclDb::createAcl( Message * message ) { enqueueChange( *this, "createAcl", message ); }

void KyAclDb::destroyAcl( U16 id ) { destroy( "destroyAcl", id, AclTarget::security ); }

void KyAclDb::createPolicy( Message * message ) { enqueueChange( *this, "createPolicy", message ); }

void KyAclDb::destroyPolicy( U16 id ) { destroy( "destroyPolicy", id, AclTarget::qos ); }

void KyAclDb::destroy( const char * action, U16 id, AclTarget target ) {
   auto * const arg = newMessage< vex::pb::KyIpAclArg >( *this );
   arg->set_acl_id( id );
   arg->set_acl_target( static_cast< U32 >( target ) );
   enqueueChange( *this, action, arg );
}

} // namespace Vex
