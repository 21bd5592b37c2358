// How a request ends: done, or refused for a reason. A request that is refused has changed nothing.
#pragma once

#include "DpTypes.h"

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

namespace Vexdp {

struct Refusal {
   int code = 0;       // a positive errno
   std::string reason; // names the object, such as "prefix 10.0.0.1/8 has host bits set"
};

// Done costs a null pointer, so that a table's update can return one.
class [[nodiscard]] Outcome {
 public:
   Outcome() = default;
   explicit Outcome( Refusal refusal ) : refusal_( std::make_unique< Refusal >( std::move( refusal ) ) ) {}

   bool ok() const { return !refusal_; }
   // REQUIRES: !ok()
   const Refusal & refusal() const { return *refusal_; }

 private:
   std::unique_ptr< Refusal > refusal_;
};

template < typename... Args >
Outcome refuse( int code, fmt::format_string< Args... > reason, Args &&... args ) {
   return Outcome( Refusal{ code, fmt::format( reason, std::forward< Args >( args )... ) } );
}

// Whether a message's field was there.
struct Field {
   bool present;
   const char * name;
};

// Refuses with the first field that is missing.
Outcome requireFields( std::initializer_list< Field > fields );

// Takes the address from a field of a message.
Outcome macFrom( const char * field, const std::string & bytes, MacAddr & mac );
std::string bytesOf( const MacAddr & mac );

// Refuses a value over the limit.
Outcome requireAtMost( const char * field, std::uint64_t value, std::uint64_t limit );

// A gate number that a table holds: one of the module's `ogates` gates, or kNoGate.
Outcome requireGate( const char * field, GateId gate, GateId ogates );

} // namespace Vexdp
