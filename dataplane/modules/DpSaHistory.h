// What the keys of security associations have been used for, beyond the life of the associations: no sequence number is
// sent twice under a key, and what has come once doesn't come again, though an association is taken away and told anew.
//
// A key is known by a code of it under a random key of this process: none is kept here.
#pragma once

#include "DpPerWorker.h"
#include "DpReplayWindow.h"

#include "vex/ipsec.pb.h"

#include <array>
#include <deque>
#include <map>
#include <memory>

namespace Vexdp {

// Values of `sa_direction`.
enum class SaDirection : std::uint8_t { outbound = 0, inbound = 1 };

struct SaUse {
   std::atomic< std::uint32_t > sequence = 0; // of the last packet that was sent
   SpinLock lock;                             // of the window, where workers share it
   ReplayWindow replay{};
   std::uint64_t ivStart = 0; // where the numbers begin that packets are encrypted under; random

   // Of the next packet, which has it alone with `advance`; 0: they are used up.
   std::uint32_t nextSequence( bool advance, bool shared );
};

class SaHistory {
 public:
   // Keys that no association has any more: so many are known at least, and twice as many at most. The oldest go.
   static constexpr std::size_t kMost = 8192;

   SaHistory();
   // By direction, SPI, destination, algorithms and keys.
   std::shared_ptr< SaUse > of( SaDirection direction, const vex::pb::IpsecUpdateSAArg::IpsecSAEntry & entry );

 private:
   using Code = std::array< std::uint8_t, 32 >;
   Code codeOf( SaDirection direction, const vex::pb::IpsecUpdateSAArg::IpsecSAEntry & entry ) const;
   void forgetOldest();

   Code key_;
   std::map< Code, std::shared_ptr< SaUse > > uses_;
   std::deque< Code > oldest_;
   std::size_t most_ = kMost; // keys, in use or not, until it looks for some to forget
};

} // namespace Vexdp
