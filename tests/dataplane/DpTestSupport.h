// Requests as lines of text, and a router made of them.
#pragma once

#include "DpEngine.h"
#include "DpWalk.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace DpTest {

using Lines = std::vector< std::string >;

// "10.1.2.3", in host byte order.
std::uint32_t ip( std::string_view text );
Vexdp::Ipv4Prefix prefix( std::string_view text );
// Text of a message with @10.1.2.3 for an address and @02:00:00:00:00:01 for the bytes of a MAC.
std::string expanded( std::string_view text );
// A message from such a text.
void parse( std::string_view text, google::protobuf::Message & message );

// Reads requests from lines, each of which is one:
//
//    create NAME CLASS [init message]     "-" is the empty name
//    destroy NAME
//    connect NAME:OGATE NAME:IGATE
//    disconnect NAME:OGATE
//    NAME COMMAND [message]
//
// A message is text of the type that the class takes; it is left out where there is no such class or command. Commands
// of one name to one module in consecutive lines become one run. Blank lines and lines that begin with # are none.
class RequestReader {
 public:
   vex::pb::Batch batch( std::string_view lines, std::uint64_t number = 1 );

 private:
   void add( const std::string & line, vex::pb::Batch & batch );
   void addCreate( std::istream & in, vex::pb::Batch & batch );
   void addCommand( const std::string & module, std::istream & in, vex::pb::Batch & batch );

   std::map< std::string, std::string > classes_; // by the modules that were created
};

// The refusals, each as "INDEX ERRNO text".
Lines refusals( const vex::pb::BatchReply & reply );

// An engine that takes lines.
class Plane {
 public:
   explicit Plane( const Vexdp::Limits & limits = {}, unsigned workers = 1 ) :
        counters( workers ), engine( counters, { .limits = limits, .workers = workers } ) {}
   Lines apply( std::string_view lines );
   // The same, for what must not be refused.
   void set( std::string_view lines ) { EXPECT_EQ( apply( lines ), Lines() ) << lines; }

   // The answer to the last of the lines.
   template < class Answer >
   Answer ask( std::string_view lines ) {
      vex::pb::BatchReply reply;
      engine.apply( reader.batch( lines ), reply );
      Answer answer;
      EXPECT_TRUE( reply.answer_size() > 0 && reply.answer().rbegin()->data().UnpackTo( &answer ) ) << lines;
      return answer;
   }

   // The requests that rebuild it, as text, one command of a run a line.
   Lines dump( std::vector< std::string > modules = {} );
   vex::pb::TracePacketReply trace( std::string_view request );

   Vexdp::CounterTable counters;
   Vexdp::Engine engine;
   RequestReader reader;
};

// Requests, each with its refusal.
using Refusals = std::vector< std::pair< std::string, std::string > >;
// From lines "request => refusal".
Refusals refusalTable( std::string_view lines );
// A plane that is made by the lines given refuses each of the requests so, and its dump stays what it was.
void expectRefusals( std::string_view given, const Refusals & expected );

// What a frame or a packet says, layer after layer, such as
//
//    02:..:01 > 02:..:02 | 10.0.0.1 > 10.1.0.1 ttl 63 tos 0 len 28 | udp 1 > 2
//
// with BADSUM and BADLEN where a checksum or a length is wrong.
std::string decodedFrame( const std::vector< std::uint8_t > & bytes );
std::string decodedIpv4( const std::vector< std::uint8_t > & bytes );

// The lines that make a trap, the FIB with VRF 0 and the classifier, and the modules of an Ethernet interface or a GRE
// tunnel, wired as the agent wires them. FIB gate 0 leads to the classifier, and an interface takes the gate `ogate`.
std::string coreLines();
// MTU 1500, MAC 02:00:00:00:00:0N for etN.
std::string ethernetLines( const std::string & name, unsigned ogate );
// `options` are more fields of the GRE init message.
std::string tunnelLines( const std::string & name, unsigned ogate, const std::string & options );

// "MODULE: action -> OGATE", without the arrow at the end, then the end itself.
Lines stepsOf( const vex::pb::TracePacketReply & reply );

} // namespace DpTest
