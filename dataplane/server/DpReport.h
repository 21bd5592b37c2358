// What a client is told of a refused request, on both services.
#pragma once

#include "DpRefusal.h"

#include "bess/control.pb.h"
#include "vex/engine.pb.h"

#include <string_view>

namespace Vexdp {

// What a request was about.
struct Subject {
   std::string_view module;
   std::string_view mclass; // empty when the module or its class is unknown
   std::string_view action; // the command, or the method that changes the graph
};

// "fibIpv4: addRoute: prefix 10.0.0.1/8 has host bits set"; what is empty is left out, and what is very long is cut.
std::string textOf( const Subject & subject, const Refusal & refusal );

void report( const Subject & subject, const Refusal & refusal, bess::pb::Error & error );

// How much a refusal says. A batch can be refused whole, and its reply is to cost about what an accepted one's does.
enum class Telling : std::uint8_t {
   code,
   text,  // and in words
   status // and by the standard error model: ErrorInfo for programs, ResourceInfo for people
};
void report( const Subject & subject, const Refusal & refusal, Telling telling, vex::pb::Refusal & reply );

// Leaves the error as it is, code 0, when the outcome is good.
template < class Response >
void report( const Subject & subject, const Outcome & outcome, Response & response ) {
   if ( !outcome.ok() ) report( subject, outcome.refusal(), *response.mutable_error() );
}

} // namespace Vexdp
