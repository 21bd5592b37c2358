// The modules that apply lists to interfaces.
#include "GantTrace.h"
#include "vex/acl.pb.h"
#include "VexAclSm.h"
#include "VexMessage.h"

namespace Vex {

static Gant::TraceHandle traceHandle( "VexAclSm" );

namespace {

// Places in the chains: on the way in before the forwarding table, on the way out before the header is made.
constexpr U32 ingressPlace = 200;
constexpr U32 egressPlace = 100;

constexpr U32 gatesMax = 8192;

AclTypeIntfAndDirection keyOf( Kynet::IntfId intfId, const Hul::AclDataPtr & aclData ) {
   return AclTypeIntfAndDirection( aclData->key().type(), intfId, aclData->key().direction() );
}

} // namespace

KyAcl::KyAcl( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
              Gant::Ptr< ModuleConfigStatusPair > pair, AclTypeIntfAndDirection key ) :
     Module( name, VexModule::KyAcl, maxInGate, maxOutGate, 0, 1, initArgs, std::move( pair ) ),
     aclTypeIntfAndDirection_( std::move( key ) ) {}

void KyAcl::applyAcl( const Gant::Ptr< VexAclData > & data ) {
   if ( !data ) return;
   auto * const arg = newMessage< vex::pb::KyApplyAclArg >( *this );
   arg->set_ipv4( true );
   arg->set_acl_id( data->hwAclId() );
   enqueueChange( *this, "applyAcl", arg );
}

struct L3IntfSm::GantVexcsd : VexCommonSmData::Notifiee {
   explicit GantVexcsd( L3IntfSm * owner ) : Notifiee( owner, owner->vexcsd() ), owner( owner ) {}
   void onL3Intf( const Kynet::IntfId & intfId ) override { owner->handleL3Intf( intfId ); }
   L3IntfSm * owner;
};

L3IntfSm::L3IntfSm( Gant::Ptr< VexCommonSmData > vexcsd, AclHelper * aclHelper ) :
     vexcsd_( std::move( vexcsd ) ), aclHelper_( aclHelper ), reactor_( std::make_unique< GantVexcsd >( this ) ) {}

L3IntfSm::~L3IntfSm() = default;

void L3IntfSm::handleL3Intf( Kynet::IntfId intfId ) {
   const auto l3Intf = vexcsd()->l3Intf( intfId );
   if ( !l3Intf ) return;
   for ( const auto type : { Acl::ip, Acl::ipv6, Acl::mac } )
      for ( const auto direction : { Acl::in, Acl::out } )
         if ( const auto & module = aclHelper()->kyAcl( AclTypeIntfAndDirection( type, intfId, direction ) ) )
            AclHelper::connect( *l3Intf, module );
}

bool AclHelper::intfSupportsAcl( Kynet::IntfId ) { return true; }

void AclHelper::connect( L3Intf & l3Intf, const Gant::Ptr< KyAcl > & module ) {
   if ( module->aclTypeIntfAndDirection().direction() == Acl::in )
      l3Intf.connectIngressModule( module, etherTypeIpv4, ingressPlace );
   else
      l3Intf.connectEgressModule( module, etherTypeIpv4, egressPlace );
}

Gant::Ptr< KyAcl > AclHelper::newKyAcl( const AclTypeIntfAndDirection & key ) {
   const auto pair = vexcsd()->moduleGlobalCmdConfig()->moduleConfigStatusPairIs( "kyAcl" );
   auto * const arg = new vex::pb::KyApplyAclInitArg;
   arg->set_intf_id( key.intfId().value() );
   arg->set_ingress( key.direction() == Acl::in );
   const auto name = Gant::textsOf( "acl", key.aclType(), key.intfId().shortName(), key.direction() );
   const auto module = Gant::make< KyAcl >( name, gatesMax, 2, arg, pair, key );
   module->connectViaReservedGate( vexcsd()->trapModule(), GateId( 0 ) );
   if ( const auto l3Intf = vexcsd()->l3Intf( key.intfId() ) )
      connect( *l3Intf, module );
   else
      GANT_TRACE( 2, "AclHelper::addIntfToAcl ", "L3Intf does not exists for intf ", key.intfId() );
   return module;
}

bool AclHelper::addIntfToAcl( Kynet::IntfId intfId, const AclDataPtr & aclData, const AclDataStatusPtr & ) {
   const auto key = keyOf( intfId, aclData );
   auto module = kyAcl( key );
   if ( !module ) module = kyAclIs( key, newKyAcl( key ) );
   module->aclNameIs( aclData->key().name() );
   module->applyingIs( true );
   return true;
}

bool AclHelper::removeIntfFromAcl( Kynet::IntfId intfId, const AclDataPtr & aclData, bool appliedToAnother ) {
   const auto key = keyOf( intfId, aclData );
   const auto module = kyAcl( key );
   if ( !module ) {
      GANT_TRACE( 2, "AclHelper::removeIntfFromAcl ", "trying to remove Acl not applied", " ", key );
      return false;
   }
   if ( appliedToAnother ) {
      GANT_TRACE( 2, "AclHelper::removeIntfFromAcl ", "applied with another Acl, no need to remove kyAcl module", " ",
                  key );
      return true;
   }
   const auto l3Intf = vexcsd()->l3Intf( intfId );
   if ( !l3Intf ) {
      GANT_TRACE( 2, "AclHelper::removeIntfFromAcl ", "L3Intf does not exist for intf ", intfId );
      kyAclDel( key );
      return true;
   }
   module->disconnectModule( vexcsd()->trapModule() );
   if ( key.direction() == Acl::in )
      l3Intf->disconnectIngressModule( module, etherTypeIpv4 );
   else
      l3Intf->disconnectEgressModule( module, etherTypeIpv4 );
   kyAclDel( key );
   return true;
}

void AclHelper::deleteAcl( U16 ) {}

bool AclHelper::ipSubruleExists( const AclDataPtr &, const UniqueId &, U32, U32 ) { return true; }

} // namespace Vex
