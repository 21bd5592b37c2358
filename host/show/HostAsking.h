// A show of what the data plane answers to one call.
#pragma once

#include "HostAgentView.h"
#include "HostShows.h"
#include "VexEngineQuery.h"

#include <google/protobuf/repeated_field.h>

namespace Host {

// A row for each item of the reply, and what stands behind them.
template < typename Engine, typename Reply, typename Item >
struct EngineShow {
   std::unique_ptr< Vex::EngineCall > ( Engine::*ask )( Vex::EngineQuery::Done< Reply > done );
   const google::protobuf::RepeatedPtrField< Item > & ( Reply::*items )() const;
   void ( *row )( const Item & item, Output & out );
   void ( *end )( const Reply & reply, Output & out ); // null: nothing
};

template < typename Engine, typename Reply, typename Item >
class Asking : public Answer {
 public:
   Asking( const Asked & asked, const EngineShow< Engine, Reply, Item > & show ) :
        view_( asked.daemon ), engine_( view_.channel()->peer() ), show_( show ),
        call_( ( engine_.*show.ask )( [ this, wake = asked.wake ]( const auto & error, const auto & reply ) {
           error_ = error.empty() ? reply.error().errmsg() : error;
           reply_ = reply;
           done_ = true;
           wake();
        } ) ) {}

   Step step( Output & out ) override {
      if ( !done_ ) return Step::wait;
      if ( !error_.empty() ) throw CommandError( ErrorCode::refused, "the data plane: " + error_ );
      const auto & items = ( reply_.*show_.items )();
      for ( ; next_ < items.size() && !out.full(); ++next_ ) show_.row( items[ next_ ], out );
      if ( next_ < items.size() ) return Step::more;
      if ( show_.end != nullptr ) show_.end( reply_, out );
      return Step::done;
   }

 private:
   const AgentView view_;
   Engine engine_;
   const EngineShow< Engine, Reply, Item > show_;
   Reply reply_;
   int next_ = 0;
   std::string error_;
   bool done_ = false;
   std::unique_ptr< Vex::EngineCall > call_; // gone first: it calls back
};

template < typename Engine, typename Reply, typename Item >
Command asking( const char * name,
                std::unique_ptr< Vex::EngineCall > ( Engine::*ask )( Vex::EngineQuery::Done< Reply > done ),
                const google::protobuf::RepeatedPtrField< Item > & ( Reply::*items )() const,
                void ( *row )( const Item & item, Output & out ),
                void ( *end )( const Reply & reply, Output & out ) = nullptr ) {
   const EngineShow< Engine, Reply, Item > show{ ask, items, row, end };
   return { name, {}, [ show ]( const Asked & asked ) -> std::unique_ptr< Answer > {
              return std::make_unique< Asking< Engine, Reply, Item > >( asked, show );
           } };
}

} // namespace Host
