// Whether a connection that a user wrote makes sense. A host asks before it writes the state: whatever reads the state
// passes values on as they come.
#pragma once

#include "StateIpsec.h"

namespace Interface {
class TunnelIntfStatusDir;
}
namespace Ip {
class AllVrfStatusLocal;
}

namespace Ipsec::Ike {

struct CheckScope {
   Gant::Ptr< const ConnectionTable > connectionTable;
   Gant::Ptr< const Ip::AllVrfStatusLocal > allVrfStatusLocal;
   Gant::Ptr< const Interface::TunnelIntfStatusDir > tunnelIntfStatusDir;
};

// Why the connection cannot be taken, "IPsec connection NAME: " and the first thing that is wrong; empty when it can.
// Of keys it says the length only. `replacing`: the connection of this key may be there already.
Gant::String refusalOf( const ConnectionKey & key, const Connection & connection, const CheckScope & scope,
                        bool replacing );

} // namespace Ipsec::Ike
