// The daemon as its command socket sees it: the router's present objects, and the way to change what the router is
// told.
#pragma once

#include "GantPtr.h"

#include <optional>
#include <string>

namespace Vex {
class GrpcChannel;
class VexCommonSmData;
} // namespace Vex
namespace VexL3Unicast {
class AgentSm;
}

namespace Host {

class Meters;
class Ports;
class RouterState;

enum class ChangeOp { add, replace, del };

struct ChangeResult {
   // invalid: wrong whatever the router holds.
   enum class Code { done, invalid, refused, notFound };
   Code code = Code::done;
   std::string message; // why not, or what is done less than was told, naming the object
};

// States: starting (the data plane is not reached yet), standby (another agent has it), running, waiting (the data
// plane is lost, and a restart is due).
enum class Phase { starting, standby, running, waiting };

// What the daemon knows of itself.
struct DaemonStatus {
   Phase phase = Phase::starting;
   double startedAt = 0; // seconds of the system clock
   double upSeconds = 0;
   std::string paused;    // why sources and changes wait; empty: they do not
   std::string dataPlane; // the address, or "embedded"
   int dataPlanePid = 0;  // of an embedded one, otherwise 0
   std::string owner;     // the agent that has it, in words, on standby; otherwise empty
   double ownedSince = 0; // seconds of the system clock of the data plane
   double ownedSeconds = 0;
   unsigned restarts = 0; // how often the data plane was lost
   std::string lastLoss;  // why, the last time
   // Of a session that began while another one's graph forwarded: it goes on until this one is in step, after which
   // packets have waited so many seconds.
   bool beside = false;
   bool inStep = false;
   std::optional< double > changeOverSeconds{};
   double lastFedSeconds = 0; // from the last session's begin until everything fed at start was acknowledged
   std::string description;   // the file, empty when there is none
   std::string routeFile;     // the same
   unsigned reloads = 0;
   unsigned sourceErrors = 0; // wrong lines and keys of the present sources
};

class DaemonControl {
 public:
   virtual ~DaemonControl() = default;

   // Everything the router was told. Always there.
   virtual RouterState & state() = 0;
   // Null while there is no data plane. They change from one session to the next: hold none of them over a turn of the
   // loop.
   virtual Gant::Ptr< VexL3Unicast::AgentSm > agent() const = 0;
   virtual Gant::Ptr< Vex::VexCommonSmData > vexcsd() const = 0;
   virtual Gant::Ptr< Vex::GrpcChannel > channel() const = 0;
   // The same; a daemon that makes no ports has none.
   virtual const Ports * ports() const { return nullptr; }
   // What it measures of itself; a daemon that does not has none.
   virtual const Meters * meters() const { return nullptr; }
   virtual DaemonStatus status() const = 0;

   // One change. `kind` is a section of the description in the singular ("route", "neighbor", "interface", "vrf",
   // "tunnel" ...), `entry` one entry of that section as YAML or JSON text; for a removal its key fields are enough.
   // `add` refuses what is there already, `replace` makes it where it is not.
   virtual ChangeResult change( ChangeOp op, const std::string & kind, const std::string & entry ) = 0;
   // Reads the sources again and applies the difference, as SIGHUP does. The message counts what was wrong in them.
   virtual ChangeResult reload() = 0;
};

} // namespace Host
