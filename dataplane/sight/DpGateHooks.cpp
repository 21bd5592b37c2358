#include "DpGateHooks.h"

#include <algorithm>
#include <cerrno>

namespace Vexdp {

using namespace bess::pb;

namespace {

struct HookClass {
   const char * name;
   const char * help;
   const char * command; // null: none
   const char * commandArg;
};
constexpr HookClass kHookClasses[] = {
     { "Track", "counts packets, batches and bytes; on every gate that is connected, always", "reset", "EmptyArg" },
     { "TcpDump", "writes packets into a fifo, as pcap", nullptr, nullptr },
     { "PcapNg", "writes packets into a fifo, as pcapng", nullptr, nullptr } };

const HookClass * hookClassOf( const std::string & name ) {
   const auto at = std::ranges::find( kHookClasses, name, &HookClass::name );
   return at == std::end( kHookClasses ) ? nullptr : at;
}

void trackIs( GateHookInfo & hook, const std::string & module ) {
   hook.set_class_name( "Track" );
   hook.set_hook_name( "track" );
   hook.set_module_name( module );
}

// Nothing: every gate.
std::optional< GateId > gateOf( std::int64_t gate ) {
   return gate < 0 ? std::nullopt : std::optional( GateId( std::min< std::int64_t >( gate, kNoGate ) ) );
}

// Of the fields of either class.
template < class Arg >
Outcome optionsFrom( const google::protobuf::Any & any, FifoWriter::Options & options ) {
   Arg arg;
   if ( !any.UnpackTo( &arg ) ) return refuse( EINVAL, "its argument is no {}", Arg::descriptor()->full_name() );
   options.path = arg.fifo();
   options.reconnect = arg.reconnect();
   return FifoWriter::check( options.path );
}

} // namespace

void GateHooks::listClasses( ListGateHookClassResponse & response ) {
   for ( const auto & each : kHookClasses ) response.add_names( each.name );
}

Outcome GateHooks::describeClass( const std::string & name, GetGateHookClassInfoResponse & response ) {
   const auto * const found = hookClassOf( name );
   if ( found == nullptr ) return refuse( ENOENT, "there is no such class of gate hooks" );
   response.set_name( found->name );
   response.set_help( found->help );
   if ( found->command != nullptr ) {
      response.add_cmds( found->command );
      response.add_cmd_args( found->commandArg );
   }
   return {};
}

Outcome GateHooks::configure( const ConfigureGateHookRequest & request, const Graph & graph, Captures & captures,
                              double now, std::string & name, Ended & ended ) {
   expire( graph, captures, ended );
   const auto & hook = request.hook();
   const auto * const mclass = hookClassOf( hook.class_name() );
   if ( mclass == nullptr ) return refuse( ENOENT, "there is no class of gate hooks \"{}\"", hook.class_name() );
   const bool track = mclass == kHookClasses;
   if ( !( track && hook.module_name().empty() ) && graph.find( hook.module_name() ) == nullptr )
      return refuse( ENOENT, "there is no module \"{}\"", hook.module_name() );
   if ( track ) {
      name = "track";
      return request.enable() ? Outcome() : refuse( EOPNOTSUPP, "gates always count" );
   }
   if ( request.enable() ) return begin( hook, captures, now, name );
   const auto at = std::ranges::find_if( dumps_, [ & ]( const auto & entry ) {
      const auto & info = entry.second.info;
      return info.class_name() == hook.class_name() && info.module_name() == hook.module_name() &&
             ( hook.hook_name().empty() || hook.hook_name() == entry.first ) && info.gate_case() == hook.gate_case() &&
             info.igate() == hook.igate() && info.ogate() == hook.ogate();
   } );
   if ( at == dumps_.end() ) return refuse( ENOENT, "there is no such hook" );
   name = at->first;
   captures.end( at->second.capture );
   ended.push_back( std::move( at->second.writer ) );
   dumps_.erase( at );
   return {};
}

Outcome GateHooks::begin( const GateHookInfo & hook, Captures & captures, double now, std::string & name ) {
   name = hook.hook_name();
   while ( name.empty() || ( hook.hook_name().empty() && dumps_.contains( name ) ) )
      name = fmt::format( "{}{}", hook.class_name(), generated_++ );
   if ( dumps_.contains( name ) ) return refuse( EEXIST, "there is a gate hook \"{}\"", name );
   FifoWriter::Options options;
   if ( auto out = hook.class_name() == "PcapNg" ? optionsFrom< PcapngArg >( hook.arg(), options )
                                                 : optionsFrom< TcpdumpArg >( hook.arg(), options );
        !out.ok() )
      return out;
   options.format = hook.class_name() == "PcapNg" ? CaptureFormat::pcapng : CaptureFormat::pcap;
   const bool out = hook.gate_case() == GateHookInfo::kOgate;
   const auto gate = out ? hook.ogate() : hook.igate();
   Capture::Place place{ hook.module_name(), out, gateOf( gate ) };
   Dump dump{ hook, 0, nullptr };
   if ( auto begun = captures.begin( std::move( place ), now, dump.capture ); !begun.ok() ) return begun;
   dump.info.set_hook_name( name );
   dump.writer = std::make_unique< FifoWriter >( captures.find( dump.capture ), std::move( options ) );
   dumps_.emplace( name, std::move( dump ) );
   return {};
}

Outcome GateHooks::command( const GateHookInfo & hook, const std::string & command, const Graph & graph ) {
   if ( hook.class_name() != "Track" || command != "reset" )
      return refuse( EOPNOTSUPP, "{} has no command \"{}\"", hook.class_name(), command );
   const bool out = hook.gate_case() == GateHookInfo::kOgate;
   const auto gate = out ? hook.ogate() : hook.igate();
   const auto one = hook.gate_case() == GateHookInfo::GATE_NOT_SET ? std::nullopt : gateOf( gate );
   if ( hook.module_name().empty() ) {
      for ( const auto & [ name, module ] : graph.modules() )
         for ( const bool side : { false, true } ) module->resetCounters( side, std::nullopt );
      return {};
   }
   auto * const module = graph.find( hook.module_name() );
   if ( module == nullptr ) return refuse( ENOENT, "there is no module \"{}\"", hook.module_name() );
   if ( hook.gate_case() == GateHookInfo::GATE_NOT_SET ) module->resetCounters( !out, std::nullopt );
   return module->resetCounters( out, one ) ? Outcome() : refuse( ENOENT, "there is no gate {}", gate );
}

void GateHooks::list( const Graph & graph, ListGateHooksResponse & response ) const {
   for ( const auto & [ name, module ] : graph.modules() ) {
      for ( GateId id = 0; id < module->igates(); ++id ) {
         auto & hook = *response.add_hooks();
         trackIs( hook, name );
         hook.set_igate( id );
      }
      for ( GateId id = 0; id < module->ogates().size(); ++id ) {
         if ( module->ogates()[ id ].peer == nullptr ) continue;
         auto & hook = *response.add_hooks();
         trackIs( hook, name );
         hook.set_ogate( id );
      }
   }
   for ( const auto & [ name, dump ] : dumps_ )
      if ( !dump.writer->over() && graph.find( dump.info.module_name() ) != nullptr ) *response.add_hooks() = dump.info;
}

void GateHooks::addTo( GetModuleInfoResponse & response ) const {
   const auto add = []( auto & gate, const std::string & mclass, const std::string & name ) {
      auto & hook = *gate.add_gatehooks();
      hook.set_class_name( mclass );
      hook.set_hook_name( name );
   };
   for ( auto & gate : *response.mutable_igates() ) add( gate, "Track", "track" );
   for ( auto & gate : *response.mutable_ogates() ) add( gate, "Track", "track" );
   for ( const auto & [ name, dump ] : dumps_ ) {
      const auto & info = dump.info;
      if ( info.module_name() != response.name() || dump.writer->over() ) continue;
      const bool out = info.gate_case() == GateHookInfo::kOgate;
      for ( auto & gate : *response.mutable_igates() )
         if ( !out && ( info.igate() < 0 || std::uint64_t( info.igate() ) == gate.igate() ) )
            add( gate, info.class_name(), name );
      for ( auto & gate : *response.mutable_ogates() )
         if ( out && ( info.ogate() < 0 || std::uint64_t( info.ogate() ) == gate.ogate() ) )
            add( gate, info.class_name(), name );
   }
}

void GateHooks::clear( Captures & captures, Ended & ended ) {
   for ( auto & [ name, dump ] : dumps_ ) {
      captures.end( dump.capture );
      ended.push_back( std::move( dump.writer ) );
   }
   dumps_.clear();
}

void GateHooks::expire( const Graph & graph, Captures & captures, Ended & ended ) {
   for ( auto at = dumps_.begin(); at != dumps_.end(); ) {
      auto & dump = at->second;
      if ( !dump.writer->over() && graph.find( dump.info.module_name() ) != nullptr ) {
         ++at;
         continue;
      }
      captures.end( dump.capture );
      ended.push_back( std::move( dump.writer ) );
      at = dumps_.erase( at );
   }
}

} // namespace Vexdp
