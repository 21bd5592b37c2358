#include "DpDump.h"

#include "DpModuleClass.h"

#include <google/protobuf/arena.h>

#include <algorithm>
#include <set>
#include <string_view>

namespace Vexdp {

using google::protobuf::Message;
using google::protobuf::RepeatedPtrField;
using namespace vex::pb;

namespace {

// Packs requests into batches.
class BatchWriter : public CommandSink {
 public:
   using Write = std::function< bool( const Batch & ) >;

   BatchWriter( std::uint64_t number, const Write & write ) : number_( number ), write_( write ) { open(); }

   Request & request() {
      run_ = nullptr;
      makeRoom();
      return *batch_->add_request();
   }

   void moduleIs( const std::string & module ) {
      module_ = module;
      run_ = nullptr;
   }

   void command( std::string_view cmd, const Message & arg ) override {
      if ( stopped_ ) return;
      makeRoom();
      if ( run_ == nullptr || run_->cmd() != cmd ) startRun( cmd, arg );
      arg.SerializeToString( run_->add_arg() );
   }

   // What is left, and in any case one batch.
   void finish() {
      if ( size_ > 0 || !written_ ) send();
   }

 private:
   void open() {
      arena_.Reset();
      batch_ = google::protobuf::Arena::CreateMessage< Batch >( &arena_ );
      batch_->set_number( number_ );
      run_ = nullptr;
      size_ = 0;
   }

   void makeRoom() {
      if ( size_ == Dump::kBatchSize ) {
         send();
         open();
      }
      ++size_;
   }

   void startRun( std::string_view cmd, const Message & arg ) {
      run_ = batch_->add_request()->mutable_command();
      run_->set_module( module_ );
      run_->set_cmd( std::string( cmd ) );
      run_->set_type( typeName( arg ) );
   }

   void send() {
      if ( !stopped_ ) stopped_ = !write_( *batch_ );
      written_ = true;
   }

   const std::uint64_t number_;
   const Write & write_;
   google::protobuf::Arena arena_;
   Batch * batch_ = nullptr;
   CommandRun * run_ = nullptr; // the one that the last command went into
   std::string module_;
   std::size_t size_ = 0;
   bool written_ = false;
   bool stopped_ = false;
};

} // namespace

Dump::Dump( const Graph & graph, std::uint64_t number, const RepeatedPtrField< std::string > & names ) :
     number_( number ) {
   const std::set< std::string_view > wanted( names.begin(), names.end() );
   for ( const auto & [ name, module ] : graph.modules() )
      if ( wanted.empty() || wanted.contains( name ) ) add( *module );
   std::stable_partition( commands_.begin(), commands_.end(), []( const auto & commands ) { return commands.shared; } );
}

void Dump::add( const Module & module ) {
   auto & create = modules_.emplace_back();
   create.set_name( module.name() );
   create.set_mclass( module.mclass().name );
   if ( module.initArg() ) *create.mutable_arg() = *module.initArg();

   for ( GateId ogate = 0; ogate < module.ogates().size(); ++ogate ) {
      const auto & gate = module.ogates()[ ogate ];
      if ( gate.peer == nullptr ) continue;
      auto & connect = connections_.emplace_back();
      connect.set_m1( module.name() );
      connect.set_ogate( ogate );
      connect.set_m2( gate.peer->name() );
      connect.set_igate( gate.igate );
   }
   commands_.push_back( { module.name(), module.mclass().shared, module.commands() } );
}

void Dump::tell( const std::function< bool( const Batch & ) > & write ) const {
   BatchWriter writer( number_, write );
   for ( const auto & create : modules_ ) *writer.request().mutable_create_module() = create;
   for ( const auto & connect : connections_ ) *writer.request().mutable_connect_modules() = connect;
   for ( const auto & commands : commands_ ) {
      writer.moduleIs( commands.module );
      commands.tell( writer );
   }
   writer.finish();
}

} // namespace Vexdp
