// What a comparison found.
#pragma once

#include "HostAnswer.h"

#include <map>
#include <set>

namespace Host {

struct Difference {
   const char * kind; // "missing", "unexpected", "different", "dangling", "reported"
   std::string module;
   std::string object;
   std::string agent;     // what it means, in words
   std::string dataPlane; // what it holds
};

class Findings {
 public:
   // Keeps the first `most` differences, and counts all.
   explicit Findings( size_t most ) : most_( most ) {}

   // The agent has it, the data plane does not.
   void missing( const std::string & module, const std::string & object, const std::string & agent ) {
      add( { "missing", module, object, agent, "" } );
   }
   // The other way round.
   void unexpected( const std::string & module, const std::string & object, const std::string & dataPlane ) {
      add( { "unexpected", module, object, "", dataPlane } );
   }
   void different( const std::string & module, const std::string & object, const std::string & agent,
                   const std::string & dataPlane ) {
      add( { "different", module, object, agent, dataPlane } );
   }
   // It names something that the data plane does not have.
   void dangling( const std::string & module, const std::string & object, const std::string & names ) {
      add( { "dangling", module, object, "", names } );
   }
   // The agent itself found it.
   void reported( const std::string & text ) { add( { "reported", "agent", "", text, "" } ); }
   // `different` when the two texts are.
   void compare( const std::string & module, const std::string & object, const std::string & agent,
                 const std::string & dataPlane ) {
      if ( agent != dataPlane ) different( module, object, agent, dataPlane );
   }
   // Objects of a kind that have been looked at.
   void compared( const char * what, U64 objects = 1 ) { compared_[ what ] += objects; }
   // What the data plane holds and nothing here knows how to compare.
   void notCompared( const std::string & what ) { notCompared_.insert( what ); }

   U64 differences() const { return count_; }
   const std::vector< Difference > & kept() const { return kept_; }
   void write( Output & out ) const;

 private:
   void add( Difference difference ) {
      if ( ++count_ <= most_ ) kept_.push_back( std::move( difference ) );
   }

   const size_t most_;
   U64 count_ = 0;
   std::vector< Difference > kept_;
   std::map< std::string, U64 > compared_;
   std::set< std::string > notCompared_;
};

} // namespace Host
