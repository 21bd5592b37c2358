// The VRFs that the router is told, and their numbers.
#pragma once

#include "HostFacts.h"
#include "HostVerdict.h"

#include <map>

namespace Ip {
class AllVrfStatusLocal;
}

namespace Host {

// A fact with its source. A source that tells it again takes it over.
template < typename Fact >
struct Told {
   Fact fact;
   Teller teller;
};

// The default VRF is always there, as number 0.
class VrfBook {
 public:
   using Vrfs = std::map< L3::VrfName, Told< VrfFact > >; // with their numbers

   explicit VrfBook( Gant::Ptr< Ip::AllVrfStatusLocal > allVrfStatusLocal );

   ChangeResult vrfIs( const VrfFact & fact, Teller teller );
   // REQUIRES: nothing is in it. The default VRF stays, without what was told of it.
   ChangeResult vrfDel( const L3::VrfName & name );

   const Vrfs & vrfs() const { return vrfs_; }
   const Gant::String & netns( const L3::VrfName & name ) const;
   // Nothing: there is no such VRF.
   std::optional< U32 > id( const L3::VrfName & name ) const;
   // Empty: the number is no VRF's.
   const L3::VrfName & name( U32 id ) const;

 private:
   U32 freeId() const;

   Gant::Ptr< Ip::AllVrfStatusLocal > allVrfStatusLocal_;
   Vrfs vrfs_;
   std::map< U32, L3::VrfName > names_;
};

// "VRF red"
inline Gant::String textOf( const L3::VrfName & name ) { return "VRF " + name.value(); }

} // namespace Host
