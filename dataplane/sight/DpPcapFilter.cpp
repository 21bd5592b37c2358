#include "DpPcapFilter.h"

#include <pcap/pcap.h>
#include <rte_bpf.h>
#include <rte_malloc.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace Vexdp {

namespace {

constexpr int kSnapLength = 65535;

// DPDK 22.11 makes wrong code of a test of bits that lie in one byte.
bool compilesRight( const bpf_program & program ) {
   constexpr bpf_u_int32 kByte = 0x80;
   return std::none_of( program.bf_insns, program.bf_insns + program.bf_len, []( const bpf_insn & step ) {
      return step.code == ( BPF_JMP | BPF_JSET | BPF_K ) && step.k + kByte < 2 * kByte;
   } );
}

// Nor does DPDK 22.11 say which register a load's index is in.
void indicesRight( const rte_bpf_prm & program ) {
   constexpr auto kIndex = EBPF_REG_7; // that it keeps the old language's X in
   for ( std::uint32_t i = 0; i < program.nb_ins; ++i ) {
      auto & step = const_cast< ebpf_insn & >( program.ins[ i ] );
      if ( BPF_CLASS( step.code ) == BPF_LD && BPF_MODE( step.code ) == BPF_IND ) step.src_reg = kIndex;
   }
}

} // namespace

// The code of a program. It takes packets as DPDK's buffers.
class PcapFilter::Compiled {
 public:
   Compiled() = default;
   Compiled( const Compiled & ) = delete;
   Compiled & operator=( const Compiled & ) = delete;
   ~Compiled() { rte_bpf_destroy( bpf_ ); }

   void programIs( const bpf_program & program ) {
      // Nothing without DPDK's memory.
      auto * const converted = compilesRight( program ) ? rte_bpf_convert( &program ) : nullptr;
      if ( converted == nullptr ) return;
      indicesRight( *converted );
      bpf_ = rte_bpf_load( converted );
      rte_free( converted );
      rte_bpf_jit code{};
      if ( bpf_ != nullptr && rte_bpf_get_jit( bpf_, &code ) == 0 ) code_ = code.func;
   }
   bool takes( const Packet & packet ) const {
      return code_ != nullptr && packet.size() <= std::numeric_limits< std::uint16_t >::max();
   }
   // REQUIRES: takes( packet )
   bool matches( const Packet & packet ) const {
      rte_mbuf mbuf; // as much of it as the code looks at
      mbuf.buf_addr = const_cast< std::uint8_t * >( packet.data() );
      mbuf.data_off = 0;
      mbuf.data_len = std::uint16_t( packet.size() );
      mbuf.pkt_len = std::uint32_t( packet.size() );
      mbuf.next = nullptr;
      mbuf.nb_segs = 1;
      return code_( &mbuf ) != 0;
   }
   explicit operator bool() const { return code_ != nullptr; }

 private:
   rte_bpf * bpf_ = nullptr;
   std::uint64_t ( *code_ )( void * packet ) = nullptr;
};

struct PcapFilter::Programs {
   class Program {
    public:
      ~Program() { pcap_freecode( &program_ ); }
      Outcome compile( int linkType, const std::string & text ) {
         const std::unique_ptr< pcap_t, decltype( &pcap_close ) > pcap( pcap_open_dead( linkType, kSnapLength ),
                                                                        &pcap_close );
         if ( !pcap ) return refuse( ENOMEM, "no memory for a filter" );
         if ( pcap_compile( pcap.get(), &program_, text.c_str(), 1, PCAP_NETMASK_UNKNOWN ) != 0 )
            return refuse( EINVAL, "\"{}\" is no filter: {}", text, pcap_geterr( pcap.get() ) );
         compiled_.programIs( program_ );
         return {};
      }
      bool matches( const Packet & packet ) const {
         return compiled_.takes( packet ) ? compiled_.matches( packet ) : matchesSlowly( packet );
      }
      bool matchesSlowly( const Packet & packet ) const {
         pcap_pkthdr header{};
         header.len = header.caplen = bpf_u_int32( packet.size() );
         return pcap_offline_filter( &program_, &header, packet.data() ) != 0;
      }
      bool compiled() const { return bool( compiled_ ); }

    private:
      bpf_program program_{};
      Compiled compiled_;
   };
   Program framed;
   Program bare;
   const Program & of( const Packet & packet ) const { return packet.meta.ethernet ? framed : bare; }
};

PcapFilter::PcapFilter() = default;
PcapFilter::~PcapFilter() = default;

// What has a meaning for frames alone ("ether host ...") matches no bare packet.
Outcome PcapFilter::textIs( const std::string & text ) {
   if ( text.empty() ) return {};
   auto programs = std::make_unique< Programs >();
   if ( auto out = programs->framed.compile( DLT_EN10MB, text ); !out.ok() ) return out;
   if ( !programs->bare.compile( DLT_RAW, text ).ok() && !programs->bare.compile( DLT_RAW, "less 0" ).ok() )
      return refuse( EINVAL, "\"{}\" is no filter", text );
   programs_ = std::move( programs );
   return {};
}

bool PcapFilter::matches( const Packet & packet ) const {
   return !programs_ || programs_->of( packet ).matches( packet );
}

bool PcapFilter::matchesSlowly( const Packet & packet ) const {
   return !programs_ || programs_->of( packet ).matchesSlowly( packet );
}

bool PcapFilter::compiled() const { return programs_ && programs_->framed.compiled() && programs_->bare.compiled(); }

} // namespace Vexdp
