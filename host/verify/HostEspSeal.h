// What the other end of an inbound association sends (RFC 4303). It shares no code with the data plane.
#pragma once

#include "StateIpsec.h"

#include <string>
#include <string_view>

namespace Host {

// The last one, which a peer reaches once: no window is ahead of it, unless the association is used up.
constexpr U32 lastSequence = 0xffffffff;

// From the SPI to the ICV, under an initialization vector at random. Empty: the crypto library refused. REQUIRES: the
// association was taken.
std::string espSealed( const Ipsec::Ike::SecurityAssociation & sa, U32 sequence, U8 nextHeader,
                       std::string_view bytes );

} // namespace Host
