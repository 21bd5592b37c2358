#include "HostVerify.h"

#include "GantActivity.h"
#include "HostComparePorts.h"
#include "HostComparer.h"
#include "HostPacketCheck.h"
#include "vex/engine.pb.h"
#include "VexDescribe.h"
#include "VexEngineQuery.h"

namespace Host {

namespace {

// Everything that the data plane told of itself, compared as it arrives.
class Run {
 public:
   Run( const AgentView & session, size_t most ) : comparison_( session, most ) {
      for ( const auto & [ name, module ] : comparison_.modules )
         comparers_.emplace( name, comparerOf( comparison_, *module ) );
   }

   void take( const vex::pb::Batch & batch ) {
      for ( const auto & request : batch.request() ) {
         if ( request.has_create_module() ) create( request.create_module() );
         if ( request.has_connect_modules() ) connect( request.connect_modules() );
         if ( request.has_command() ) command( request.command() );
      }
   }

   // After the last batch. False: call again in another slice.
   bool finish() {
      if ( !finishedGraph_ ) {
         finishAgent();
         finishGraph();
      }
      finishedGraph_ = true;
      while ( finishing_ != comparers_.end() ) {
         if ( created_.contains( finishing_->first ) ) {
            if ( !finishing_->second->finish() ) return false;
            finishing_->second->finishCounters();
         }
         ++finishing_;
      }
      return true;
   }
   Findings & findings() { return comparison_.findings; }

 private:
   using Connection = std::pair< std::string, U64 >; // a module's output gate
   static std::string inWords( const std::string & module, U64 inputGate ) {
      return inputGate == 0 ? module : module + ":" + std::to_string( inputGate );
   }
   static std::string gateInWords( U64 gate ) { return "gate " + std::to_string( gate ); }

   void create( const bess::pb::CreateModuleRequest & create ) {
      auto & findings = comparison_.findings;
      findings.compared( "modules" );
      const auto at = comparers_.find( create.name() );
      if ( at == comparers_.end() ) return findings.unexpected( create.name(), "module", create.mclass() );
      created_.insert( create.name() );
      findings.compare( create.name(), "class",
                        Vex::VexModule::name( comparison_.modules.at( create.name() )->moduleClass() ),
                        create.mclass() );
      at->second->created( create.arg() );
   }

   void connect( const bess::pb::ConnectModulesRequest & connect ) {
      comparison_.findings.compared( "connections" );
      comparison_.connected.insert( { connect.m1(), connect.ogate() } );
      const auto held = inWords( connect.m2(), connect.igate() );
      const auto module = comparison_.modules.find( connect.m1() );
      if ( module == comparison_.modules.end() ) return;
      const auto & gates = module->second->outGate();
      const auto at = gates.find( Vex::GateId( static_cast< U32 >( connect.ogate() ) ) );
      if ( at == gates.end() )
         comparison_.findings.unexpected( connect.m1(), gateInWords( connect.ogate() ), "to " + held );
      else
         comparison_.findings.compare( connect.m1(), gateInWords( connect.ogate() ),
                                       "to " + inWords( at->second.peer->name(), at->second.inGate.value() ),
                                       "to " + held );
   }

   void command( const vex::pb::CommandRun & run ) {
      const auto at = comparers_.find( run.module() );
      if ( at == comparers_.end() ) return;
      for ( const auto & arg : run.arg() ) at->second->command( run.cmd(), run.type(), arg );
   }

   // What the agent's state machines find when they compare what they hold with what they were told.
   void finishAgent() {
      const auto verifyData = comparison_.session.vexcsd()->verifyData();
      verifyData->cliVerifyOutputDelAll();
      verifyData->verifyIs( verifyData->verify() + 1 );
      comparison_.findings.compared( "agent's own checks" );
      for ( const auto & text : verifyData->cliVerifyOutput() ) comparison_.findings.reported( text );
   }

   void finishGraph() {
      for ( const auto & [ name, module ] : comparison_.modules ) {
         if ( !created_.contains( name ) ) {
            comparison_.findings.missing( name, "module", Vex::VexModule::name( module->moduleClass() ) );
            continue;
         }
         for ( const auto & [ gate, connection ] : module->outGate() )
            if ( !comparison_.connected.contains( { name, gate.value() } ) )
               comparison_.findings.missing( name, gateInWords( gate.value() ),
                                             "to " + inWords( connection.peer->name(), connection.inGate.value() ) );
      }
      finishing_ = comparers_.begin();
   }

   Comparison comparison_;
   std::map< std::string, std::unique_ptr< Comparer > > comparers_;
   std::set< std::string > created_;
   bool finishedGraph_ = false;
   std::map< std::string, std::unique_ptr< Comparer > >::iterator finishing_;
};

// Phases: settling (requests are on their way), comparing, finishing. A change of what the agent means sends it back
// to settling, and what was found is forgotten. Packets are walked once it has settled.
class Verify : public Answer, private Gant::StateMachine {
 public:
   Verify( const Asked & asked ) :
        session_( asked.daemon ), state_( asked.daemon.state() ), packets_( asked.question.flag( "packets" ) ),
        most_( asked.question.number( "most", 1000 ) ), wake_( asked.wake ), query_( session_.channel()->peer() ),
        clock_( Gant::activityManager()->newClock() ), gantClock_( *this ), begun_( clock_->now() ) {}

   Step step( Output & out ) override {
      const auto channel = session_.channel();
      if ( check_ ) return walk( out );
      if ( phase_ != Phase::settling && channel->forwardingGeneration() != generation_ ) settleAgain();
      switch ( phase_ ) {
      case Phase::settling: return settle( *channel );
      case Phase::comparing: return compare();
      case Phase::finishing: break;
      }
      if ( !run_->finish() ) return Step::more;
      if ( const auto * const ports = session_.ports(); ports_ && ports != nullptr ) {
         if ( !ports_->done() ) return Step::wait;
         if ( ports->generation() != ports_->generation() ) {
            settleAgain();
            return Step::more;
         }
         ports_->write( run_->findings() );
      }
      return end( run_->findings(), out );
   }

 private:
   enum class Phase { settling, comparing, finishing };
   static constexpr double settleSeconds = 30;
   static constexpr double lookAgainSeconds = 0.01;
   static constexpr int attemptsMax = 20;

   class GantClock : public Gant::Clock::Notifiee {
    public:
      explicit GantClock( Verify & verify ) : Notifiee( &verify, verify.clock_ ), verify_( verify ) {}
      void onTime() override { verify_.wake_(); }

    private:
      Verify & verify_;
   };

   Step settle( const Vex::GrpcChannel & channel ) {
      const auto ahead = channel.requestsQueued() - channel.requestsAcknowledged();
      const auto * const ports = session_.ports();
      if ( ahead == 0 && ( ports == nullptr || !ports->changing() ) ) {
         if ( packets_ ) {
            findings_.emplace( most_ );
            check_ = std::make_unique< PacketCheck >( session_, state_, most_, wake_, [ this ] { lookAgain(); } );
            return Step::more;
         }
         if ( ports != nullptr ) ports_ = std::make_unique< PortComparison >( *ports, channel.peer(), wake_ );
         generation_ = channel.forwardingGeneration();
         run_ = std::make_unique< Run >( session_, most_ );
         dump_ = query_.dump( {}, wake_ );
         phase_ = Phase::comparing;
         return Step::wait;
      }
      if ( clock_->now() > begun_ + settleSeconds )
         throw CommandError(
              ErrorCode::refused,
              "the data plane does not catch up: " +
                   ( ahead == 0 ? "its ports change" : std::to_string( ahead ) + " requests are not answered" ) );
      lookAgain();
      return Step::wait;
   }
   void lookAgain() { clock_->timeMinIs( clock_->now() + lookAgainSeconds ); }

   void settleAgain() {
      dump_ = nullptr;
      ports_ = nullptr;
      run_ = nullptr;
      phase_ = Phase::settling;
      if ( ++attempts_ == attemptsMax )
         throw CommandError( ErrorCode::refused, "the routes change faster than they can be compared" );
   }

   // A batch is a slice.
   Step compare() {
      if ( const auto batch = dump_->next() ) {
         run_->take( *batch );
         return Step::more;
      }
      if ( !dump_->ended() ) return Step::wait;
      if ( const auto error = dump_->error(); !error.empty() )
         throw CommandError( ErrorCode::refused, "no dump of the data plane: " + error );
      phase_ = Phase::finishing;
      return Step::more;
   }

   Step walk( Output & out ) {
      const auto step = check_->step( *findings_ );
      return step == Step::done ? end( *findings_, out ) : step;
   }
   Step end( const Findings & findings, Output & out ) {
      findings.write( out );
      if ( check_ ) check_->write( out );
      out.endMember( "seconds", clock_->now() - begun_ );
      return Step::done;
   }

   const AgentView session_;
   const RouterState & state_;
   const bool packets_;
   const size_t most_;
   const std::function< void() > wake_;
   Vex::EngineQuery query_;
   Phase phase_ = Phase::settling;
   U64 generation_ = 0;
   int attempts_ = 0;
   std::unique_ptr< Run > run_;
   std::unique_ptr< Vex::EngineDump > dump_;
   std::unique_ptr< PortComparison > ports_;
   std::optional< Findings > findings_; // of packets
   std::unique_ptr< PacketCheck > check_;
   Gant::Ptr< Gant::Clock > clock_;
   GantClock gantClock_;
   const double begun_;
};

} // namespace

Commands verifyCommands() {
   return { { "verify",
              { { "most", Parameter::Kind::number }, { "packets", Parameter::Kind::flag } },
              []( const Asked & asked ) { return std::make_unique< Verify >( asked ); } } };
}

} // namespace Host
