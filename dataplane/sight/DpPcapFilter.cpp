#include "DpPcapFilter.h"

#include <pcap/pcap.h>

#include <cerrno>

namespace Vexdp {

namespace {
constexpr int kSnapLength = 65535;
}

struct PcapFilter::Programs {
   class Program {
    public:
      ~Program() { pcap_freecode( &program_ ); }
      Outcome compile( int linkType, const std::string & text ) {
         const std::unique_ptr< pcap_t, decltype( &pcap_close ) > pcap( pcap_open_dead( linkType, kSnapLength ),
                                                                        &pcap_close );
         if ( !pcap ) return refuse( ENOMEM, "no memory for a filter" );
         if ( pcap_compile( pcap.get(), &program_, text.c_str(), 1, PCAP_NETMASK_UNKNOWN ) == 0 ) return {};
         return refuse( EINVAL, "\"{}\" is no filter: {}", text, pcap_geterr( pcap.get() ) );
      }
      bool matches( const Packet & packet ) const {
         pcap_pkthdr header{};
         header.len = header.caplen = bpf_u_int32( packet.size() );
         return pcap_offline_filter( &program_, &header, packet.data() ) != 0;
      }

    private:
      bpf_program program_{};
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
   if ( text.size() > kMostText )
      return refuse( EINVAL, "a filter of {} characters, at most {} are taken", text.size(), kMostText );
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

} // namespace Vexdp
