// Counters of the L3 modules: allocated by name, given to the module by id, and recorded for release.
#pragma once

#include "VexCommonSmData.h"
#include "VexL3Modules.h"

namespace VexL3Unicast {

// The counter's full name is the module's, a hyphen and `name`.
Vex::CounterId allocModuleCounter( const Gant::Ptr< Vex::Module > & module,
                                   const Gant::Ptr< Vex::VexCommonSmData > & vexcsd, const char * name );
void freeModuleCounters( const Gant::Ptr< Vex::Module > & module, const Gant::Ptr< Vex::VexCommonSmData > & vexcsd );

void addIpInputCounters( const Gant::Ptr< IpInputMod > & module, const Gant::Ptr< Vex::VexCommonSmData > & vexcsd );
void addIpOutputCounters( const Gant::Ptr< IpOutputMod > & module, const Gant::Ptr< Vex::VexCommonSmData > & vexcsd );
void addForUsClassifyIpv4Counters( const Gant::Ptr< ForUsClassifyIpv4 > & module,
                                   const Gant::Ptr< Vex::VexCommonSmData > & vexcsd );
void addNextHopCounters( const Gant::Ptr< NextHopMod > & module, const Gant::Ptr< Vex::VexCommonSmData > & vexcsd );
void addFibCounters( const Gant::Ptr< FibIpv4 > & module, const Gant::Ptr< Vex::VexCommonSmData > & vexcsd );

} // namespace VexL3Unicast
