// The table of layer-3 interface ids.
#pragma once

#include "GantEntity.h"
#include "GantValue.h"
#include "KynetIntfId.h"
#include "StateBridging.h"

namespace HulL3Intf {

// The id of a layer-3 interface. Its low 16 bits are the interface's VLAN, which for a routed port is an internal one.
// 0: the interface has none.
class L3Id {
   GANT_SCALAR( L3Id, U64, 0 )
};

// Who routes over an interface asks for its id with `routedIntf`; ConfigSm answers, before the setter returns, with
// `intfL3Index`.
class Table : public Gant::Entity {
 public:
   using L3Ids = Gant::OrderedMap< Kynet::IntfId, L3Id >;
   using Intfs = Gant::OrderedSet< Kynet::IntfId >;
   class Notifiee : public Gant::NotifieeOf< Table > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIntfL3Index( const Kynet::IntfId & ) {}
      virtual void onRoutedIntf( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   Table( Gant::Name name, bool internalVlanNeeded ) :
        Entity( std::move( name ) ), internalVlanNeeded_( internalVlanNeeded ) {}

   // Routed ports get a VLAN of their own, from 4094 downwards.
   GANT_CONST( bool, internalVlanNeeded )
   GANT_WATCHED_MAP( L3Ids, intfL3Index, onIntfL3Index )
   GANT_WATCHED_SET( Intfs, routedIntf, onRoutedIntf )
   // 0 where the interface has none.
   L3Id intfIdToL3Id( Kynet::IntfId intfId ) const { return intfL3Index( intfId ); }
};

} // namespace HulL3Intf
