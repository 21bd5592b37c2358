// Rule tables alone: a packet that passes so many rules before the last one matches it.

#include "DpRuleTable.h"

#include <benchmark/benchmark.h>

#include <random>

namespace {

using namespace Vexdp;

// A list as people write them: hosts and nets that may reach a port, and at the end everything.
vex::pb::KyIpAclArg listOf( std::size_t rules ) {
   std::mt19937 random( 3 );
   vex::pb::KyIpAclArg arg;
   arg.set_acl_id( 1 );
   arg.set_acl_target( 0 );
   for ( std::size_t i = 0; i + 1 < rules; ++i ) {
      auto & rule = *arg.add_rule();
      const auto srcLen = 8 + random() % 25, dstLen = 16 + random() % 17;
      rule.set_src_ip_mask( ~0u << ( 32 - srcLen ) );
      rule.set_src_ip( std::uint32_t( random() ) & rule.src_ip_mask() );
      rule.set_dst_ip_mask( ~0u << ( 32 - dstLen ) );
      rule.set_dst_ip( std::uint32_t( random() ) & rule.dst_ip_mask() );
      rule.set_proto( random() % 2 ? 6 : 17 );
      const auto port = random() % 1024;
      rule.set_dst_port_lower( port );
      rule.set_dst_port_upper( random() % 4 ? port : 65535 );
      rule.set_permit( true );
   }
   arg.add_rule()->set_permit( true );
   return arg;
}

std::vector< RuleKey > keys() {
   std::mt19937 random( 4 );
   std::vector< RuleKey > keys( 1024 );
   for ( auto & key : keys ) {
      key.addresses = std::uint64_t( random() ) << 32 | std::uint32_t( random() );
      key.fields = ( random() % 2 ? 6 : 17 ) | RuleKey::kHasPorts;
      const auto sport = std::uint16_t( random() ), dport = std::uint16_t( random() );
      key.ranged = { sport, dport, 64, 64 };
   }
   return keys;
}

void match( benchmark::State & state ) {
   const RuleTable table( listOf( std::size_t( state.range( 0 ) ) ) );
   const auto packets = keys();
   std::size_t at = 0;
   for ( auto _ : state ) benchmark::DoNotOptimize( table.match( packets[ at++ % packets.size() ] ) );
}

// Rule after rule, to compare with.
void compareEach( benchmark::State & state ) {
   const auto arg = listOf( std::size_t( state.range( 0 ) ) );
   const std::vector< Rule > rules( arg.rule().begin(), arg.rule().end() );
   const auto packets = keys();
   std::size_t at = 0;
   for ( auto _ : state ) {
      const auto & key = packets[ at++ % packets.size() ];
      benchmark::DoNotOptimize(
           std::find_if( rules.begin(), rules.end(), [ &key ]( const Rule & rule ) { return rule.matches( key ); } ) );
   }
}

void build( benchmark::State & state ) {
   const auto arg = listOf( std::size_t( state.range( 0 ) ) );
   for ( auto _ : state ) benchmark::DoNotOptimize( RuleTable( arg ) );
}

BENCHMARK( match )->RangeMultiplier( 10 )->Range( 10, 10000 );
BENCHMARK( compareEach )->RangeMultiplier( 10 )->Range( 10, 10000 );
BENCHMARK( build )->RangeMultiplier( 10 )->Range( 10, 10000 )->Unit( benchmark::kMicrosecond );

} // namespace

BENCHMARK_MAIN();
