#include "HostAnswer.h"

#include "GantCleanse.h"

namespace Host {

const char * name( ErrorCode code ) {
   switch ( code ) {
   case ErrorCode::refused: return "refused";
   case ErrorCode::usage: return "usage";
   case ErrorCode::notFound: return "notFound";
   case ErrorCode::unavailable: return "unavailable";
   }
   return "";
}

void cleanse( Json & json ) {
   if ( json.is_string() ) return Gant::cleanse( json.get_ref< std::string & >() );
   for ( auto & part : json )
      if ( part.is_structured() || part.is_string() ) cleanse( part );
}

namespace {

class AtOnce : public Answer {
 public:
   explicit AtOnce( std::function< void( Output & ) > write ) : write_( std::move( write ) ) {}
   Step step( Output & out ) override {
      write_( out );
      return Step::done;
   }

 private:
   std::function< void( Output & ) > write_;
};

} // namespace

std::unique_ptr< Answer > atOnce( std::function< void( Output & ) > write ) {
   return std::make_unique< AtOnce >( std::move( write ) );
}

} // namespace Host
