// What is wrong in the sources, as file, line and reason.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

// The text as a log may have it: its first 500 bytes, with control bytes written out.
std::string printable( std::string_view text, size_t longest = 500 );

struct SourceError {
   std::string file;
   int line = 0; // from 1; 0: of the file as a whole
   std::string text;
   // "router.yaml:12: MTU 60 is under 68"
   std::string stringValue() const;
};

// Counts all of them, and tells and keeps the first `kept`: a file that is no route file at all has a million.
class SourceErrors {
 public:
   using Tell = std::function< void( const SourceError & ) >;
   static constexpr size_t kept = 100;

   explicit SourceErrors( Tell tell ) : tell_( std::move( tell ) ) {}
   void add( SourceError error );
   // What is accepted and does less than it says: it is told, and is no error.
   void note( const SourceError & note ) {
      if ( tell_ ) tell_( note );
   }
   size_t count() const { return count_; }
   const std::vector< SourceError > & errors() const { return errors_; }

 private:
   Tell tell_;
   size_t count_ = 0;
   std::vector< SourceError > errors_;
};

} // namespace Host
