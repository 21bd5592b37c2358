// What a data plane supplies for IPsec. The virtual operations stand in slot order.
#pragma once

#include "StateIpsec.h"

namespace HulIpsec {

using Ipsec::Ike::IntfList;
using Ipsec::Ike::SecurityAssociationQueue;

// Order of calls, which the layer keeps: the connections that are there at start between the two marks of the table's
// start; a connection before its changes, and those before its end. Arguments are lent for the call.
class HulIpsecSmHelper : public Gant::PtrInterface {
 public:
   // `intfList` null: the connection has no interface. `outSa` null: it has no outbound association.
   virtual void newConnection( const Kynet::NamespaceName & vrfName, const Ipsec::Ike::EncapId & encapId,
                               const IntfList * intfList, const Ipsec::Ike::SecurityAssociation * outSa,
                               const SecurityAssociationQueue & inSaq ) = 0;
   virtual void deleteConnection( const Kynet::NamespaceName & vrfName, const Ipsec::Ike::EncapId & encapId ) = 0;
   // Each change brings the whole of what changed.
   virtual void changeIntfList( const Kynet::NamespaceName & vrfName, const Ipsec::Ike::EncapId & encapId,
                                const IntfList & newList ) = 0;
   virtual void changeInSecurityAssociation( const Kynet::NamespaceName & vrfName, const Ipsec::Ike::EncapId & encapId,
                                             const SecurityAssociationQueue & saq ) = 0;
   // `sa` null: there is none any more.
   virtual void changeOutSecurityAssociation( const Kynet::NamespaceName & vrfName, const Ipsec::Ike::EncapId & encapId,
                                              const Ipsec::Ike::SecurityAssociation * sa ) = 0;
   virtual void beginConnectionTableInit() = 0;
   virtual void completedConnectionTableInit() = 0;
};

} // namespace HulIpsec
