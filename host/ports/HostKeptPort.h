// One port of the data plane, brought to what is wanted of it and kept so.
#pragma once

#include "bess/control.pb.h"
#include "GantTypes.h"

#include <functional>
#include <memory>
#include <optional>

namespace Vex {
class EngineCall;
class EnginePorts;
} // namespace Vex

namespace Host {

// What a port is to be.
struct PortWish {
   bess::pb::CreatePortRequest create;
   bess::pb::PortConf conf;
   Gant::String device{};     // in words
   Gant::String netns{};      // of the device, by its name
   Gant::String hostDevice{}; // the kernel's device below it, where there is one
   Gant::String impossible{}; // why nobody can make it; empty: it can be
   bool kernel = false;       // a device in the kernel, whose link is what others make it
   bool hasLink = true;       // packets need its link: a socket has whoever comes to it
   bool byDefault = false;    // nobody asked for it: without the right to make it there is none
};

// Of one direction since the port was made, and of the last second.
struct PortTraffic {
   U64 packets = 0;
   U64 bytes = 0;
   U64 dropped = 0;
   double packetsPerSecond = 0;
   double bitsPerSecond = 0;
};

//   calls  EnginePorts, one call at a time
//
// States: absent (it is not there; what stands in the way is `reason`), there. A port that is there is asked for its
// link and its packets every second; one that has lost its device is destroyed and made again. What fails is tried
// again after one second, then every two; what is not permitted, less and less often, to once a minute. Each reason is
// logged once, until it is another one.
class KeptPort {
 public:
   enum class State { making, up, down, failed, leaving };
   struct Events {
      std::function< bool() > mayChange; // whether the data plane may be given another change to make now
      std::function< bool() > maySweep;  // whether what was found may go
      std::function< void() > done;      // the data plane has changed something of it
      std::function< void() > changed;   // it may be told differently: made, destroyed, set, refused, its link
   };

   KeptPort( const Gant::String & name, Vex::EnginePorts & engine, Events events );
   ~KeptPort();
   KeptPort( const KeptPort & ) = delete;
   KeptPort & operator=( const KeptPort & ) = delete;

   // Nothing: it is not wanted.
   void wishIs( std::optional< PortWish > wish );
   // The data plane has this port from another session. It is taken over where it was made as it is wanted; otherwise
   // it goes, when it may: what still forwards may need it.
   void found( const bess::pb::ListPortsResponse::Port & port );
   // Does what is due.
   void review();

   const Gant::String & name() const { return name_; }
   const std::optional< PortWish > & wish() const { return wish_; }
   // Neither wanted nor there.
   bool gone() const { return !wish_ && !there_ && !call_; }
   // Made as it is wanted, and its settings told.
   bool ready() const { return set_ && made(); }
   // A change of it is under way.
   bool changing() const { return changing_; }
   // Wanted by default only, and not to be had here.
   bool leftOut() const;

   State state() const;
   const Gant::String & reason() const { return reason_; } // why it is not as wanted; empty: it is
   bool linkUp() const { return linkUp_; }
   // Whether packets can go by it: its link is up, or that is down or the device is not there. Nothing: that is not
   // known, as while it is being made or set, or without the right to make it; or nobody asks.
   std::optional< bool > carries() const;
   // It is there as it is wanted, and what is to be known of its link will be soon.
   bool linkAwaited() const;
   U32 speed() const { return speed_; }              // Mbit/s; 0: not known
   const Gant::String & mac() const { return mac_; } // as text, of the port itself
   const PortTraffic & in() const { return in_; }
   const PortTraffic & out() const { return out_; }

 private:
   bool made() const;
   void create();
   void created( const Gant::String & error, const bess::pb::CreatePortResponse & reply );
   void destroy();
   void destroyed( const Gant::String & error, const bess::pb::Error & refusal );
   void configure();
   void configured( const bess::pb::PortConf & told, const Gant::String & error, const bess::pb::Error & refusal );
   void pollLink();
   void linkIs( const bess::pb::GetLinkStatusResponse & reply );
   void pollStats();
   void statsAre( const bess::pb::GetPortStatsResponse & reply );
   bool deviceReplaced() const;
   // It is of no use any more.
   void broken( const Gant::String & reason );
   void failed( int code, const Gant::String & reason );
   void worked();
   void tell();
   // The end of a change.
   void settled();
   bool due( double time ) const;

   const Gant::String name_;
   Vex::EnginePorts & engine_;
   const Events events_;
   std::optional< PortWish > wish_;
   std::unique_ptr< Vex::EngineCall > call_; // under way
   bool changing_ = false;
   bool there_ = false;
   bool found_ = false;                     // it is of another session
   bool broken_ = false;                    // it is there, and of no use
   bool set_ = false;                       // conf_ was told, whether taken or not
   Gant::String wishedCreate_, wishedConf_; // of wish_, serialized
   Gant::String made_;                      // the request that made it, serialized; empty: not known
   Gant::String conf_;                      // the settings that it took, serialized
   unsigned hostIndex_ = 0; // of the device below it, when the port was made; 0: none that is seen from here
   double retryAt_ = 0;
   double backOff_ = 0;
   double pollAt_ = 0;
   double countedAt_ = 0; // by the data plane's clock
   int code_ = 0;         // of the last refusal
   Gant::String reason_;
   Gant::String told_; // the reason that is in the log
   bool linkUp_ = false;
   bool linkKnown_ = false; // since it was set
   double linkBy_ = 0;      // until then a link that is not up may be on its way
   bool noDevice_ = false;  // it could not be made for want of one
   U32 speed_ = 0;
   Gant::String mac_;
   PortTraffic in_, out_;
};

const char * textOf( KeptPort::State state );

} // namespace Host
