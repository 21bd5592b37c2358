#include "CtlShows.h"

#include "CtlCapture.h"
#include "CtlGraph.h"
#include "CtlWhy.h"

#include <fmt/format.h>

namespace Ctl {

namespace {

std::uint64_t numberOf( const Json & object, const char * name ) {
   const auto at = object.find( name );
   return at == object.end() || !at->is_number() ? 0 : at->get< std::uint64_t >();
}

std::string joined( std::initializer_list< std::string > words ) {
   std::string out;
   for ( const auto & word : words )
      if ( !word.empty() ) out += ( out.empty() ? "" : " " ) + word;
   return out;
}

std::string labelled( const char * label, const std::string & value ) {
   return value.empty() ? value : std::string( label ) + " " + value;
}

// "Ethernet1 forward 00:00:00:00:00:02 (gate 4, index 1)"
std::string nexthopInWords( const Json & hop ) {
   const auto gate = labelled( "gate", member( hop, "gate" ) ), index = labelled( "index", member( hop, "index" ) );
   const auto place = gate.empty() || index.empty() ? gate + index : gate + ", " + index;
   return joined( { member( hop, "interface" ), member( hop, "command" ), member( hop, "mac" ),
                    labelled( "through", member( hop, "tunnel" ) ), place.empty() ? "" : "(" + place + ")" } );
}

std::string viaInWords( const Json & via ) {
   return joined( { member( via, "kind" ), member( via, "address" ), member( via, "interface" ), member( via, "mac" ),
                    labelled( "through", member( via, "tunnel" ) ), labelled( "weight", member( via, "weight" ) ) } );
}

// "3 another device (10.9.0.0/16 by eth0)"
std::string refusalInWords( const Json & refusal ) {
   return joined(
        { member( refusal, "count" ), member( refusal, "reason" ), "(" + member( refusal, "example" ) + ")" } );
}

std::string secondsInWords( const Json & value ) { return seconds( value.get< double >() ); }
std::string agoInWords( const Json & value ) { return seconds( value.get< double >() ) + " ago"; }
std::string shortTimeInWords( const Json & value ) {
   return value < 1 ? fmt::format( "{:.3g} ms", value.get< double >() * 1000 ) : secondsInWords( value );
}
std::string bucketInWords( const Json & bucket ) {
   const auto number = groupedInWords( bucket.at( "count" ) );
   return bucket.contains( "upToSeconds" ) ? number + " up to " + shortTimeInWords( bucket.at( "upToSeconds" ) )
                                           : number + " longer";
}
std::string mssInWords( const Json & value ) { return value == 0 ? "-" : inWords( value ); }
std::string keyInWords( const Json & value ) { return value == 0 ? "-" : inWords( value ); }
std::string megabytes( const Json & value ) { return fmt::format( "{:.1f} MB", value.get< double >() / 1e6 ); }

std::string perSecond( const Json & value ) { return fmt::format( "{:.1f}", value.get< double >() ); }

Column rate( std::string title, std::string name ) {
   return shown( std::move( title ), std::move( name ), perSecond, Column::Align::right );
}

// A fact out of an object in the record.
Column inner( std::string title, std::string outer, std::vector< std::string > names ) {
   return { std::move( title ), [ outer = std::move( outer ), names = std::move( names ) ]( const Json & row ) {
              const auto object = row.value( outer, Json::object() );
              std::string line;
              for ( const auto & name : names )
                 line += fmt::format( "{}{} {}", line.empty() ? "" : ", ", grouped( numberOf( object, name.c_str() ) ),
                                      name );
              return Cell{ line };
           } };
}

Footer counted( std::string one, std::string many ) {
   return [ one = std::move( one ), many = std::move( many ) ]( const Json & end ) {
      const auto rows = numberOf( end, "rows" );
      return rows == 0 ? "No " + many : "";
   };
}

const Word vrfWord{ "vrf", "vrf", "NAME|all" };
const Word matchWord{ "", "match", "PREFIX|ADDRESS|default" };
const Option dataPlane{ "--dataplane", "dataplane", "as the data plane itself answers" };
const Option most( const char * what ) { return { "--most", "most", what, Option::Kind::number }; }

std::vector< Show > routingShows() {
   return {
        { .command = "show fib",
          .help = "routes in the data plane; for an address the longest match",
          .words = { vrfWord, matchWord },
          .options = { dataPlane },
          .columns = { text( "VRF", "vrf" ), text( "Prefix", "prefix" ), number( "FEC", "fec" ),
                       list( "Next hops", "nexthops", nexthopInWords ), text( "", "builtIn" ), text( "State", "state" ),
                       shown( "FEC missing", "fecMissing", inWords ) },
          .footer = counted( "route", "routes" ) },
        { .command = "show routes",
          .help = "routes that the router was told, and what has become of them",
          .words = { vrfWord, matchWord },
          .columns = { text( "VRF", "vrf" ), text( "Prefix", "prefix" ), text( "Type", "type" ),
                       text( "Source", "source" ), text( "Protocol", "protocol" ), number( "Distance", "distance" ),
                       number( "Metric", "metric" ), text( "State", "state" ), number( "FEC", "fec" ),
                       list( "Via", "via", viaInWords ), shown( "Stale", "stale", inWords ),
                       text( "Reason", "reason" ) },
          .footer = counted( "route", "routes" ) },
        { .command = "show sources",
          .help = "who tells the router routes, and how that is going",
          .columns = { text( "Source", "source" ), shown( "Connected", "connected", inWords ), text( "Peer", "peer" ),
                       count( "Routes", "routes" ), count( "Stale", "stale" ), count( "Refused", "refused" ),
                       count( "Answered", "answered" ), count( "Next hops", "nextHops" ),
                       count( "Messages", "messages" ), count( "Bytes", "bytes" ), number( "Losses", "losses" ),
                       text( "Last loss", "lastLoss" ), text( "Sweep", "sweep" ),
                       list( "Refused because", "refusals", refusalInWords ), text( "Error", "error" ) } },
        { .command = "source",
          .help = "have a source tell everything again, and sweep what it does not tell any more",
          .words = { { "", "source", "NAME" }, { "", "operation", "resync|sweep|hold" } },
          .view = []( const Given &, std::ostream & out ) -> std::unique_ptr< View > {
             return std::make_unique< QuietView >( out );
          } },
        { .command = "show nexthops",
          .help = "entries of the interfaces' next-hop tables",
          .words = { { "", "interface", "INTERFACE" } },
          .options = { dataPlane },
          .columns = { text( "Interface", "interface" ), number( "Index", "index" ), text( "Command", "command" ),
                       text( "MAC", "mac" ), text( "Tunnel", "tunnel" ), number( "FEC", "fec" ),
                       text( "State", "state" ), text( "Reason", "reason" ) },
          .footer = counted( "next hop", "next hops" ) },
        { .command = "show adjacencies",
          .help = "ways out that routes share, with their FECs",
          .columns = { number( "Adjacency", "adjacency" ), number( "FEC", "fec" ), number( "Version", "version" ),
                       text( "State", "state" ), count( "Routes", "routes" ), list( "Via", "via", viaInWords ),
                       text( "Reason", "reason" ) },
          .footer = counted( "adjacency", "adjacencies" ) },
        { .command = "show pending",
          .help = "what was asked for and cannot be done yet",
          .options = { most( "rows to list" ) },
          .columns = { text( "Object", "object" ), text( "Waits because", "reason" ) },
          .footer = []( const Json & end ) -> std::string {
             if ( end.value( "more", false ) ) return "There is more: --most N";
             if ( end.value( "busy", false ) ) return "Routes are still being looked at";
             return numberOf( end, "rows" ) == 0 ? "Nothing is pending" : "";
          } },
   };
}

std::vector< Show > interfaceShows() {
   return {
        { .command = "show interfaces",
          .help = "interfaces, with their addresses and limits",
          .words = { { "", "interface", "INTERFACE" } },
          .columns = { text( "Interface", "interface" ), text( "State", "state" ), text( "VRF", "vrf" ),
                       text( "Addresses", "addresses" ), number( "MTU", "mtu" ),
                       shown( "MSS in", "mssIngress", mssInWords, Column::Align::right ),
                       shown( "MSS out", "mssEgress", mssInWords, Column::Align::right ), text( "MAC", "mac" ),
                       text( "Kind", "kind" ), text( "Device", "device" ), text( "Port", "port" ),
                       text( "Why not", "portReason" ), text( "Kernel device", "kernelDevice" ),
                       text( "", "kernelState" ), text( "", "kernelReason" ), text( "In data plane", "routed" ),
                       number( "FIB gate", "fibGate" ) },
          .footer = counted( "interface", "interfaces" ) },
        { .command = "show ports",
          .help = "ports of the data plane, with their links, packets and rates",
          .columns = { text( "Port", "port" ), text( "Driver", "driver" ), text( "Device", "device" ),
                       text( "Namespace", "netns" ), text( "MAC", "mac" ), text( "State", "state" ),
                       count( "Packets in", "packetsIn" ), rate( "Per second", "packetsPerSecondIn" ),
                       count( "Bytes in", "bytesIn" ), count( "Drops in", "dropsIn" ),
                       count( "Packets out", "packetsOut" ), rate( "Per second", "packetsPerSecondOut" ),
                       count( "Bytes out", "bytesOut" ), count( "Drops out", "dropsOut" ), text( "Reason", "reason" ) },
          .footer = counted( "port", "ports" ) },
        { .command = "show workers",
          .help = "threads of the data plane that move packets",
          .columns = { number( "Worker", "worker" ), number( "Core", "core" ), text( "Running", "running" ),
                       number( "Traffic classes", "trafficClasses" ), count( "Silent drops", "silentDrops" ) },
          .footer = counted( "worker", "workers" ) },
        { .command = "show buffers",
          .help = "packet buffers of the data plane, which are in use while a packet or a device's queue holds them",
          .columns = { number( "Socket", "socket" ), count( "Buffers", "buffers" ), count( "Bytes each", "bytesEach" ),
                       count( "Available", "available" ), count( "In use", "inUse" ) } },
        { .command = "show drops",
          .help = "packets that the data plane lost, by module and reason",
          .options = { { "--once", "once", "at once, without rates" } },
          .columns = { text( "Module", "module" ), text( "Reason", "reason" ), count( "Packets", "packets" ),
                       rate( "Per second", "packetsPerSecond" ) },
          .footer = counted( "reason", "reasons" ) },
        { .command = "show neighbors",
          .help = "neighbours that were told, with their MACs",
          .words = { { "", "interface", "INTERFACE" } },
          .columns = { text( "Interface", "interface" ), text( "VRF", "vrf" ), text( "Address", "address" ),
                       text( "MAC", "mac" ) },
          .footer = counted( "neighbour", "neighbours" ) },
        { .command = "show tunnels",
          .help = "tunnels, with their ends",
          .words = { { "", "tunnel", "TUNNEL" } },
          .columns = { text( "Tunnel", "tunnel" ), text( "Mode", "mode" ), text( "Source", "source" ),
                       text( "Destination", "destination" ), text( "Underlay", "underlayVrf" ), text( "VRF", "vrf" ),
                       shown( "Key", "key", keyInWords, Column::Align::right ), number( "TTL", "ttl" ),
                       number( "TOS", "tos" ), number( "MTU", "mtu" ),
                       shown( "MSS in", "mssIngress", mssInWords, Column::Align::right ),
                       shown( "MSS out", "mssEgress", mssInWords, Column::Align::right ),
                       text( "In data plane", "built" ), number( "Resolve entries", "resolveEntries" ) },
          .footer = counted( "tunnel", "tunnels" ) },
        { .command = "show vrfs",
          .help = "VRFs, with their numbers of routes",
          .columns = { text( "VRF", "vrf" ), number( "Id", "id" ), text( "Active", "active" ),
                       count( "IPv4 routes", "routes" ), count( "IPv6 routes", "routes6" ),
                       number( "Sequence", "sequence" ), number( "Programmed", "sequenceProgrammed" ) },
          .footer = counted( "VRF", "VRFs" ) },
   };
}

// "Tunnel1 active"
std::string pairInWords( const Json & pair ) {
   return member( pair, "interface" ) + ( pair.value( "active", false ) ? " active" : " inactive" );
}

std::vector< Show > ipsecShows() {
   return {
        { .command = "show ipsec connections",
          .help = "IPsec connections, with their tunnels",
          .columns = { text( "Connection", "connection" ), text( "VRF", "vrf" ), number( "Id", "id" ),
                       text( "Type", "type" ), count( "Inbound SAs", "inboundSas" ),
                       text( "Outbound SA", "outboundSa" ), list( "Tunnels", "pairs", pairInWords ),
                       text( "Flow", "flow" ) },
          .footer = counted( "IPsec connection", "IPsec connections" ) },
        { .command = "show ipsec sas",
          .help = "security associations; of keys the lengths only",
          .columns = { text( "Connection", "connection" ), text( "VRF", "vrf" ), text( "Direction", "direction" ),
                       text( "SPI", "spi" ), text( "Source", "source" ), text( "Destination", "destination" ),
                       text( "Mode", "mode" ), text( "Encryption", "encryption" ),
                       text( "Authentication", "authentication" ), number( "Replay window", "replayWindow" ),
                       text( "UDP", "udp" ), text( "State", "state" ), text( "Reason", "reason" ),
                       shown( "Age", "ageSeconds", secondsInWords, Column::Align::right ) },
          .footer = counted( "security association", "security associations" ) },
        { .command = "show ipsec flows",
          .help = "flows of the tunnels' packets to the router itself",
          .columns = { number( "Protocol", "protocol" ), text( "Source", "source" ), number( "Port", "sourcePort" ),
                       text( "Destination", "destination" ), number( "Port", "destinationPort" ), text( "SPI", "spi" ),
                       number( "Users", "users" ) },
          .footer = counted( "flow", "flows" ) },
   };
}

std::vector< Show > aclShows() {
   return {
        { .command = "show access-lists",
          .help = "access lists, with the packets that each rule has matched",
          .words = { { "", "list", "NAME" } },
          .columns = { text( "List", "list" ), number( "Sequence", "sequence" ), text( "Rule", "rule" ),
                       count( "Packets", "packets" ), rate( "Per second", "packetsPerSecond" ),
                       text( "State", "state" ), list( "Applied", "applied", inWords ), text( "Note", "note" ) },
          .footer = counted( "rule", "access lists" ) },
        { .command = "show policy-map",
          .help = "policy maps, with the packets of each class",
          .words = { { "", "policy", "NAME" }, { "interface", "interface", "INTERFACE" } },
          .columns = { text( "Policy", "policy" ), text( "Class", "class" ), list( "Access lists", "lists", inWords ),
                       list( "Actions", "actions", inWords ), count( "Packets", "packets" ),
                       list( "Applied", "applied", inWords ), list( "Note", "notes", inWords ),
                       text( "State", "state" ), text( "Reason", "reason" ) },
          .footer = counted( "class", "policy maps" ) },
        { .command = "show control-plane",
          .help = "traffic classes of what is for the router itself",
          .columns = { text( "Protocol", "protocol" ), number( "Source port", "sourcePort" ),
                       number( "Destination port", "destinationPort" ), number( "DSCP", "dscp" ),
                       number( "Traffic class", "trafficClass" ), count( "Packets", "packets" ) },
          .footer = counted( "rule", "rules" ) },
   };
}

std::vector< Show > bridgingShows() {
   return {
        { .command = "show vrrp",
          .help = "virtual routers' MACs, and whether their interfaces answer to them",
          .columns = { text( "Interface", "interface" ), text( "MAC", "mac" ), text( "In data plane", "programmed" ),
                       text( "Reason", "reason" ) },
          .footer = counted( "virtual MAC", "virtual MACs" ) },
        { .command = "show vlans",
          .help = "VLANs, with their members",
          .columns = { number( "VLAN", "vlan" ), text( "Members", "members" ), text( "Router", "router" ) },
          .footer = counted( "VLAN", "VLANs" ) },
        { .command = "show nat",
          .help = "address translations that were asked for",
          .columns = { text( "Kind", "kind" ), text( "Interface", "interface" ), number( "VLAN", "vlan" ),
                       text( "Target", "target" ), number( "Protocol", "protocol" ), text( "Original", "original" ),
                       text( "Translated", "translated" ), text( "List", "acl" ), number( "Priority", "priority" ),
                       text( "Accepted", "accepted" ), text( "Translating", "translating" ),
                       count( "Packets", "packets" ) },
          .footer = []( const Json & ) -> std::string {
             return "This data plane has no translation: rules are accepted, and no packet is translated";
          } },
   };
}

std::vector< Show > platformShows() {
   return {
        { .command = "show capabilities",
          .help = "what the agent tells of its data plane",
          .columns = { text( "Feature", "feature" ), text( "Capability", "capability" ),
                       shown( "Value", "value", inWords, Column::Align::right ), text( "", "note" ) },
          .footer = []( const Json & ) -> std::string {
             return "These are declared to what runs above the agent; what is told beyond them is not refused";
          } },
        { .command = "show capacity",
          .help = "how full the tables of the data plane are",
          .columns = { text( "Table", "table" ), text( "Feature", "feature" ), text( "Chip", "chip" ),
                       text( "Counted", "counted" ), number( "Used", "used" ), number( "Free", "free" ),
                       number( "Committed", "committed" ), number( "Max", "max" ) },
          .footer = counted( "table", "tables" ) },
        { .command = "show walks",
          .help = "how often FECs were redone because what they need has come",
          .columns = { count( "Walks asked for", "walksAsked" ), count( "Port updates", "portVifUpdates" ),
                       count( "Flood set updates", "floodVifUpdates" ),
                       count( "VLAN port updates", "vlanPortStatusUpdates" ), count( "FECs", "fecs" ),
                       count( "Adjacencies", "adjacencies" ), text( "Looking at routes", "busy" ) },
          .record = true },
   };
}

std::vector< Show > graphShows() {
   return {
        { .command = "show modules",
          .help = "modules of the data plane",
          .columns = { text( "Module", "module" ), text( "Class", "class" ), text( "Group", "group" ),
                       number( "In", "inputs" ), number( "Out", "outputs" ), number( "Counters", "counters" ) },
          .footer = counted( "module", "modules" ) },
        { .command = "show graph",
          .help = "modules with the gates between them",
          .view = []( const Given & given, std::ostream & out ) -> std::unique_ptr< View > {
             if ( given.contains( "--dot" ) ) return std::make_unique< DotView >( out );
             return std::make_unique< GraphView >( out );
          },
          .viewOptions = { { "--dot", "", "as a Graphviz picture" } } },
        { .command = "show gates",
          .help = "packets that went from module to module",
          .columns = { text( "Module", "module" ), text( "Class", "class" ), number( "Gate", "gate" ),
                       text( "To", "to" ), count( "Packets", "packets" ), count( "Bytes", "bytes" ) },
          .footer = counted( "gate", "gates" ) },
        { .command = "show counters",
          .help = "what the modules of the data plane count",
          .words = { { "", "module", "MODULE" } },
          .options = { { "--nonzero", "nonzero", "without those that are 0" } },
          .columns = { text( "Module", "module" ),
                       text( "Counter", "counter" ),
                       number( "Slot", "slot" ),
                       { "Value",
                         []( const Json & row ) {
                            const auto & value = row.at( "value" );
                            return Cell{ value.is_null() ? "not readable" : groupedInWords( value ) };
                         },
                         Column::Align::right } },
          .footer = counted( "counter", "counters" ) },
   };
}

std::vector< Show > daemonShows() {
   return {
        { .command = "show summary",
          .help = "how much there is, and how much was done",
          .columns = { count( "VRFs", "vrfs" ), count( "Interfaces", "interfaces" ),
                       count( "Routed interfaces", "routedInterfaces" ), count( "Tunnels", "tunnels" ),
                       inner( "Routes told", "routesTold", { "ipv4", "ipv6" } ),
                       count( "Routes programmed", "routesProgrammed" ),
                       count( "Routes over interfaces not up", "routesOverDisabled" ),
                       inner( "Routes under way", "routesUnderWay", { "ipv4", "ipv6" } ),
                       inner( "Routes refused", "routesRefused", { "ipv4", "ipv6" } ), count( "FECs", "fecs" ),
                       count( "Adjacencies", "adjacencies" ), count( "Modules", "modules" ),
                       count( "Counters", "counters" ),
                       inner( "Requests", "requests", { "queued", "acknowledged", "refused" } ),
                       shown( "Looking at routes", "busy", inWords ),
                       shown( "Resident memory", "residentBytes", megabytes ) },
          .record = true },
        { .command = "show status",
          .help = "the daemon and its data plane",
          .columns = { text( "Phase", "phase" ), number( "Process id", "pid" ),
                       shown( "Up for", "upSeconds", secondsInWords ), text( "Data plane", "dataPlane" ),
                       number( "Data plane process id", "dataPlanePid" ), text( "Belongs to", "owner" ),
                       shown( "Has it for", "ownedSeconds", secondsInWords ),
                       text( "Data plane version", "dataPlaneVersion" ), text( "Transport", "transport" ),
                       text( "Forwarding", "forwarding" ),
                       shown( "Changed over in", "changeOverSeconds", shortTimeInWords ),
                       number( "Data plane losses", "restarts" ), text( "Last loss", "lastLoss" ),
                       text( "Paused", "paused" ), shown( "Last fed in", "lastFedSeconds", secondsInWords ),
                       text( "Description", "description" ), text( "Route file", "routeFile" ),
                       number( "Reloads", "reloads" ), number( "Wrong entries in sources", "sourceErrors" ) },
          .record = true },
        { .command = "show version",
          .help = "versions of the daemon and its data plane",
          .columns = { text( "vexl3d", "vexl3d" ), text( "Data plane", "dataPlane" ) },
          .record = true },
        { .command = "show loop",
          .help = "how long the turns of the daemon's loop were, and the data plane's answers took",
          .columns = { count( "Turns", "turns" ), shown( "Busy for", "busySeconds", secondsInWords ),
                       shown( "Longest turn", "longestTurnSeconds", shortTimeInWords ),
                       shown( "That was", "longestTurnSecondsAgo", agoInWords ),
                       shown( "Longest of the last minutes", "longestTurnOfLateSeconds", shortTimeInWords ),
                       list( "Turns by length", "turnLengths", bucketInWords ),
                       count( "Requests acknowledged", "requestsAcknowledged" ),
                       shown( "After, on average", "meanAcknowledgementSeconds", shortTimeInWords ),
                       list( "Requests by time", "acknowledgementTimes", bucketInWords ) },
          .record = true },
        { .command = "show errors",
          .help = "requests that the data plane refused, the newest last",
          .columns = { shown( "When", "secondsAgo", agoInWords ), text( "Module", "module" ),
                       text( "Action", "action" ), text( "Argument", "argument" ), number( "Code", "code" ),
                       text( "", "errno" ), text( "Text", "text" ) },
          .footer = []( const Json & end ) -> std::string {
             const auto refused = numberOf( end, "refused" ), rows = numberOf( end, "rows" );
             if ( refused == 0 ) return "The data plane has refused nothing";
             return refused == rows ? "" : fmt::format( "{} refused, the newest {} kept", grouped( refused ), rows );
          } },
        { .command = "show queue",
          .help = "requests that the data plane has not answered yet",
          .options = { most( "requests to list" ) },
          .columns = { text( "State", "state" ), text( "Module", "module" ), text( "Action", "action" ),
                       text( "Argument", "argument" ) },
          .footer =
               []( const Json & end ) {
                  return fmt::format( "{} sent, {} waiting ({} bytes); {} of {} acknowledged{}",
                                      grouped( numberOf( end, "sent" ) ), grouped( numberOf( end, "waiting" ) ),
                                      grouped( numberOf( end, "waitingBytes" ) ),
                                      grouped( numberOf( end, "acknowledged" ) ), grouped( numberOf( end, "queued" ) ),
                                      numberOf( end, "sent" ) == 0
                                           ? ""
                                           : ", the oldest sent " + agoInWords( end.at( "oldestSentSeconds" ) ) );
               } },
        { .command = "show trace",
          .help = "the newest trace lines, oldest first",
          .words = { { "", "unit", "UNIT" } },
          .options = { most( "lines" ) },
          .columns = { shown( "When", "secondsAgo", agoInWords, Column::Align::right ), text( "Unit", "unit" ),
                       number( "Level", "level" ), text( "Text", "text" ) },
          .footer = counted( "trace line", "trace lines" ) },
        { .command = "show trace-units",
          .help = "trace units, with their levels",
          .columns = { text( "Unit", "unit" ), number( "Level", "level" ), number( "Stream level", "streamLevel" ) } },
   };
}

// With a line each.
std::string notMetInWords( const Json & end ) {
   std::string lines;
   const auto kept = end.value( "notMet", Json::array() );
   for ( const auto & object : kept )
      lines += fmt::format( "\nMet by no packet: {}: {}", member( object, "object" ), member( object, "reason" ) );
   if ( const auto all = numberOf( end, "notMetCount" ); all > kept.size() )
      lines += fmt::format( "\nMet by no packet: {} in all", grouped( all ) );
   return lines;
}

std::string differencesInWords( const Json & end ) {
   const auto differences = numberOf( end, "differences" );
   if ( differences > numberOf( end, "rows" ) )
      return fmt::format( "{} differences, of which the first are listed", grouped( differences ) ) +
             notMetInWords( end );
   if ( differences > 0 )
      return fmt::format( "{} difference{}", differences, differences == 1 ? "" : "s" ) + notMetInWords( end );
   const auto compared = end.value( "compared", Json::object() );
   std::string line;
   for ( const auto & [ what, number ] : compared.items() )
      line += fmt::format( "{}{} {}", line.empty() ? "" : ", ", what, groupedInWords( number ) );
   line = "No differences: " + ( line.empty() ? "there was nothing to compare," : line ) + " in " +
          seconds( end.value( "seconds", 0.0 ) );
   std::string unknown;
   for ( const auto & what : end.value( "notCompared", Json::array() ) )
      unknown += ( unknown.empty() ? "" : ", " ) + inWords( what );
   if ( !unknown.empty() ) line += "\nNot compared: " + unknown;
   return line + notMetInWords( end );
}

std::vector< Show > checks() {
   const auto number = []( const char * name, const char * member, const char * help ) {
      return Option{ name, member, help, Option::Kind::number };
   };
   const auto named = []( const char * name, const char * member, const char * help ) {
      return Option{ name, member, help, Option::Kind::named };
   };
   const auto worded = []( const char * name, const char * member, const char * help ) {
      return Option{ name, member, help, Option::Kind::text };
   };
   const auto needed = []( const char * name, const char * member, const char * help ) {
      return Option{ name, member, help, Option::Kind::text, true };
   };
   return {
        { .command = "verify",
          .help = "compare what the agent means with what the data plane holds",
          .options = { number( "--most", "most", "differences to list" ),
                       { "--packets", "packets", "walk a packet for each route, rule, class and tunnel instead" } },
          .columns = { text( "Difference", "difference" ), text( "Module", "module" ), text( "Object", "object" ),
                       text( "Agent", "agent" ), text( "Data plane", "dataPlane" ) },
          .footer = differencesInWords,
          .exitCode =
               []( const Json & end ) {
                  return numberOf( end, "differences" ) == 0 ? ExitCode::done : ExitCode::refused;
               } },
        { .command = "trace packet",
          .help = "walk a described packet through the data plane",
          .options = { needed( "--in", "interface", "interface that it comes in at" ),
                       needed( "--src", "source", "IPv4 address" ),
                       needed( "--dst", "destination", "IPv4 address" ),
                       named( "--proto", "protocol", "IP protocol: tcp, udp, icmp ..., or a number" ),
                       number( "--sport", "sourcePort", "port" ),
                       number( "--dport", "destinationPort", "port" ),
                       number( "--ttl", "ttl", "0: 64" ),
                       named( "--dscp", "dscp", "ef, af41 ..., or a number from 0 to 63" ),
                       number( "--length", "length", "bytes of the IPv4 packet; 0: its headers alone" ),
                       number( "--tcp-flags", "tcpFlags", "0 to 255" ),
                       number( "--icmp-type", "icmpType", "0 to 255" ),
                       number( "--icmp-code", "icmpCode", "0 to 255" ),
                       { "--count", "count", "let gates and counters count it" } },
          .view = []( const Given &, std::ostream & out ) -> std::unique_ptr< View > {
             return std::make_unique< PacketView >( out );
          } },
        { .command = "trace live",
          .help = "the way of real packets through the data plane, as they come, until ^C",
          .options = { worded( "--in", "interface", "interface that they come in at" ),
                       worded( "--filter", "filter", "in the language of pcap, such as \"icmp and host 10.0.1.2\"" ),
                       { "--drops", "drops", "only those that are lost" },
                       number( "--count", "count", "end after so many" ) },
          .view = []( const Given &, std::ostream & out ) -> std::unique_ptr< View > {
             return std::make_unique< WayView >( out );
          } },
        { .command = "capture",
          .help = "packets as they come in and leave, or as they come to a module, until ^C",
          .options = { worded( "--module", "module", "as they come to it" ),
                       number( "--gate", "gate", "with --module: as they leave it by the gate" ),
                       worded( "--filter", "filter", "in the language of pcap, such as \"icmp and host 10.0.1.2\"" ),
                       number( "--count", "count", "end after so many" ) },
          .view = []( const Given & given, std::ostream & out ) -> std::unique_ptr< View > {
             if ( const auto file = given.find( "-w" ); file != given.end() )
                return std::make_unique< PcapView >( file->second, out );
             return std::make_unique< CaptureView >( out );
          },
          .viewOptions = { { "-w", "", "write them to a file, as pcapng; -: to the output", Option::Kind::text } } },
        { .command = "trace level",
          .help = "set how much a unit traces: 0 to 9, * for all units",
          .words = { { "", "unit", "UNIT" }, { "", "level", "LEVEL" } },
          .options = { number( "--stream", "streamLevel", "up to this level also to the log" ) },
          .view = []( const Given &, std::ostream & out ) -> std::unique_ptr< View > {
             return std::make_unique< QuietView >( out );
          } },
   };
}

} // namespace

std::vector< Show > shows() {
   std::vector< Show > all;
   for ( auto * const some : { routingShows, interfaceShows, ipsecShows, aclShows, bridgingShows, platformShows,
                               graphShows, daemonShows, checks } )
      for ( auto & show : some() ) all.push_back( std::move( show ) );
   all.push_back( whyShow() );
   return all;
}

Json membersOf( const std::vector< Word > & words, const std::vector< std::string > & given ) {
   auto members = Json::object();
   auto next = words.begin();
   for ( size_t at = 0; at < given.size(); ++at ) {
      const auto keyword = std::ranges::find_if(
           words, [ & ]( const auto & word ) { return !word.keyword.empty() && word.keyword == given[ at ]; } );
      if ( keyword != words.end() && !members.contains( keyword->member ) ) {
         if ( at + 1 == given.size() ) throw Error{ "usage", given[ at ] + " is followed by " + keyword->help };
         members[ keyword->member ] = given[ ++at ];
         continue;
      }
      while ( next != words.end() && !next->keyword.empty() ) ++next;
      if ( next == words.end() ) throw Error{ "usage", "\"" + given[ at ] + "\" is one word too many" };
      members[ next++->member ] = given[ at ];
   }
   return members;
}

} // namespace Ctl
