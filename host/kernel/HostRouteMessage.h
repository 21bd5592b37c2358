// Routes and next-hop objects as rtnetlink (RFC 3549) words them, from the kernel or from a routing suite.
#pragma once

#include "KynetAddr.h"

#include <vector>

struct nlmsghdr;

namespace Host {

struct NetlinkHop {
   Kynet::IpGenAddr gateway{}; // 0.0.0.0: none
   U32 index = 0;              // of a link; 0: none
   U16 weight = 1;
   bool onlink = false;
   bool dead = false; // of several, and the kernel sends nothing by it: its device is down or has no address
   friend bool operator==( const NetlinkHop &, const NetlinkHop & ) = default;
};

// Read one after the other into the same one, so that its room is kept.
struct RouteMessage {
   // For a route of some packets only, which have a source prefix or a type of service, there may be one of the prefix
   // beside it.
   enum class Of { prefix, somePackets, otherFamily };
   Of of = Of::prefix;
   bool del = false;
   bool append = false;         // beside those that are there
   Kynet::IpGenPrefix prefix{}; // of otherFamily there is none
   U8 type = 0;                 // RTN_*
   U8 protocol = 0;
   U8 tos = 0;
   U32 flags = 0; // RTM_F_*
   U32 table = 0;
   U32 metric = 0;
   U32 nextHopId = 0; // 0: the hops are its own
   std::vector< NetlinkHop > hops{};
   const char * strange = nullptr; // what of it has no meaning here; null: nothing
};

struct NextHopMessage {
   bool del = false;
   U32 id = 0;
   U8 protocol = 0;
   bool blackhole = false;
   NetlinkHop hop{};
   std::vector< std::pair< U32, U16 > > group{}; // ids with weights; empty: it is no group
   const char * strange = nullptr;
};

// Of RTM_NEWROUTE and RTM_DELROUTE, and of RTM_NEWNEXTHOP and RTM_DELNEXTHOP, whose length is that of the header. Each
// gives what is malformed; null: nothing is.
const char * readRoute( const nlmsghdr & header, RouteMessage & message );
const char * readNextHop( const nlmsghdr & header, NextHopMessage & message );

} // namespace Host
