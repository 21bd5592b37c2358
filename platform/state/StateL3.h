// Layer-3 state that is neither a family's nor a protocol's.
#pragma once

#include "GantEntity.h"
#include "GantValue.h"

namespace L3 {

// The name of a VRF. The default VRF is "default".
class VrfName {
 public:
   VrfName() = default;
   explicit VrfName( Gant::String value ) : value_( std::move( value ) ) {}
   static const VrfName & defaultVrf() {
      static const VrfName name( "default" );
      return name;
   }
   const Gant::String & value() const { return value_; }
   bool operator!() const { return value_.empty(); }
   friend bool operator==( const VrfName &, const VrfName & ) = default;
   friend auto operator<=>( const VrfName &, const VrfName & ) = default;
   size_t hash() const { return Gant::hashOf( value_ ); }
   const Gant::String & stringValue() const { return value_; }
   Gant::String strep() const { return Gant::strepQuoted( value_ ); }
   void strepIs( Gant::StrepReader & in ) { value_ = in.quoted(); }

 private:
   Gant::String value_;
};

// Layer-3 configuration of the device as a whole.
class Config : public Gant::Entity {
 public:
   class Notifiee : public Gant::NotifieeOf< Config > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onRouting() {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED( bool, routing, onRouting, true )
   GANT_WATCHED( bool, routing6, onRouting, false )
};

} // namespace L3
