#include "HostDocument.h"

#include "HostEntry.h"

#include <algorithm>
#include <istream>
#include <streambuf>
#include <unordered_map>
#include <yaml-cpp/eventhandler.h>

namespace Host {

namespace {

// A stream over the text itself: a copy of it would be one more place where a key stays.
class TextBuffer : public std::streambuf {
 public:
   explicit TextBuffer( const std::string & text ) {
      auto * const begin = const_cast< char * >( text.data() );
      setg( begin, begin, begin + text.size() );
   }
};

// Counts the nodes that the tree would have, and throws once there are too many or they are too deep.
class Measure : public YAML::EventHandler {
 public:
   explicit Measure( const DocumentBounds & bounds ) : bounds_( bounds ) {}

   void OnDocumentStart( const YAML::Mark & ) override {}
   void OnDocumentEnd() override {}
   void OnNull( const YAML::Mark & mark, YAML::anchor_t anchor ) override { leaf( mark, anchor ); }
   void OnScalar( const YAML::Mark & mark, const std::string &, YAML::anchor_t anchor, const std::string & ) override {
      leaf( mark, anchor );
   }
   void OnSequenceStart( const YAML::Mark & mark, const std::string &, YAML::anchor_t anchor,
                         YAML::EmitterStyle::value ) override {
      begin( mark, anchor );
   }
   void OnMapStart( const YAML::Mark & mark, const std::string &, YAML::anchor_t anchor,
                    YAML::EmitterStyle::value ) override {
      begin( mark, anchor );
   }
   void OnSequenceEnd() override { end(); }
   void OnMapEnd() override { end(); }
   void OnAlias( const YAML::Mark & mark, YAML::anchor_t anchor ) override {
      const auto at = anchored_.find( anchor );
      if ( at == anchored_.end() ) fail( mark, "an alias stands inside its own anchor" );
      if ( open_.size() + at->second.depth > bounds_.depth ) tooDeep( mark );
      deepen( at->second.depth );
      count( mark, at->second.nodes );
   }

 private:
   struct Size {
      size_t nodes;
      size_t depth; // of nodes below each other, itself included
   };
   struct Open {
      YAML::anchor_t anchor;
      size_t nodesBefore;
      size_t depth = 0; // of the deepest so far of what is in it
   };

   [[noreturn]] static void fail( const YAML::Mark & mark, const std::string & what ) {
      throw EntryError( what, mark.line + 1 );
   }
   [[noreturn]] void tooDeep( const YAML::Mark & mark ) const {
      fail( mark, "it is nested more than " + std::to_string( bounds_.depth ) + " deep" );
   }
   void count( const YAML::Mark & mark, size_t nodes ) {
      nodes_ += nodes;
      if ( nodes_ > bounds_.nodes )
         fail( mark, "it stands for more than " + std::to_string( bounds_.nodes ) + " values" );
   }
   void deepen( size_t depth ) {
      if ( !open_.empty() ) open_.back().depth = std::max( open_.back().depth, depth );
   }
   void leaf( const YAML::Mark & mark, YAML::anchor_t anchor ) {
      count( mark, 1 );
      deepen( 1 );
      if ( anchor != YAML::NullAnchor ) anchored_[ anchor ] = { 1, 1 };
   }
   void begin( const YAML::Mark & mark, YAML::anchor_t anchor ) {
      if ( open_.size() == bounds_.depth ) tooDeep( mark );
      open_.push_back( { anchor, nodes_ } );
      count( mark, 1 );
   }
   void end() {
      const auto ended = open_.back();
      open_.pop_back();
      deepen( ended.depth + 1 );
      if ( ended.anchor != YAML::NullAnchor )
         anchored_[ ended.anchor ] = { nodes_ - ended.nodesBefore, ended.depth + 1 };
   }

   const DocumentBounds bounds_;
   size_t nodes_ = 0;
   std::vector< Open > open_;
   std::unordered_map< YAML::anchor_t, Size > anchored_;
};

} // namespace

YAML::Node parseDocument( const std::string & text, const DocumentBounds & bounds ) {
   if ( text.size() > bounds.bytes )
      throw EntryError( "it is longer than " + std::to_string( bounds.bytes ) + " bytes", 0 );
   try {
      TextBuffer measured( text ), loaded( text );
      std::istream toMeasure( &measured ), toLoad( &loaded );
      Measure measure( bounds );
      YAML::Parser( toMeasure ).HandleNextDocument( measure );
      return YAML::Load( toLoad );
   } catch ( const YAML::Exception & error ) {
      throw EntryError( "it is not YAML: " + error.msg, error.mark.line + 1 );
   }
}

} // namespace Host
