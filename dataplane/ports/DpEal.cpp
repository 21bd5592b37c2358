#include "DpEal.h"

#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_lcore.h>
#include <rte_log.h>
#include <rte_mbuf.h>
#include <spdlog/spdlog.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

namespace Vexdp {

namespace {

constexpr unsigned kUsualRoom = RTE_PKTMBUF_HEADROOM + 2048;
constexpr unsigned kJumboRoom = RTE_PKTMBUF_HEADROOM + 16384;
constexpr unsigned kJumboBuffers = 2048;
constexpr unsigned kCache = 256;

// What EAL says, line by line, in the words of our log.
ssize_t logged( void *, const char * text, std::size_t size ) {
   std::string_view line( text, size );
   while ( !line.empty() && ( line.back() == '\n' || line.back() == ' ' ) ) line.remove_suffix( 1 );
   if ( line.empty() ) return ssize_t( size );
   const int level = rte_log_cur_msg_loglevel();
   spdlog::log( level <= int( RTE_LOG_ERR )       ? spdlog::level::warn
                : level <= int( RTE_LOG_WARNING ) ? spdlog::level::info
                                                  : spdlog::level::debug,
                "dpdk: {}", line );
   return ssize_t( size );
}

void freeMbuf( void * owner ) { rte_pktmbuf_free( static_cast< rte_mbuf * >( owner ) ); }

} // namespace

// EAL binds the thread that starts it to a core, so that it is not one of ours.
Outcome Eal::start() {
   if ( !tried_ ) {
      tried_ = true;
      std::thread( [ & ] {
         if ( auto out = startHere(); !out.ok() ) refusal_ = out.refusal();
      } ).join();
   }
   return refusal_.code == 0 ? Outcome() : Outcome( refusal_ );
}

Outcome Eal::startHere() {
   static cookie_io_functions_t functions{ nullptr, logged, nullptr, nullptr };
   if ( auto * stream = fopencookie( nullptr, "w", functions ) ) {
      setvbuf( stream, nullptr, _IOLBF, 0 );
      rte_openlog_stream( stream );
   }
   std::vector< std::string > words{ "vexdp", "--file-prefix", fmt::format( "vexdp-{}", getpid() ), "--no-telemetry" };
   words.insert( words.end(), { "-m", std::to_string( options_.memory ) } );
   if ( !options_.hugePages ) words.insert( words.end(), { "--no-huge", "--no-pci", "--no-shconf" } );
   words.insert( words.end(), options_.words.begin(), options_.words.end() );
   std::vector< char * > argv;
   argv.reserve( words.size() );
   for ( auto & word : words ) argv.push_back( word.data() );
   if ( rte_eal_init( int( argv.size() ), argv.data() ) < 0 )
      return refuse( rte_errno == 0 ? EIO : rte_errno, "DPDK doesn't start: {}", rte_strerror( rte_errno ) );
   usual_ = rte_pktmbuf_pool_create( "packets", options_.buffers, kCache, 0, kUsualRoom, SOCKET_ID_ANY );
   if ( usual_ == nullptr )
      return refuse( ENOMEM, "no memory for {} packet buffers: {}", options_.buffers, rte_strerror( rte_errno ) );
   started_.store( true, std::memory_order_release );
   return {};
}

bool Eal::join() { return rte_thread_register() == 0; }

void Eal::leave() { rte_thread_unregister(); }

rte_mempool * Eal::poolFor( unsigned frameLen ) {
   if ( frameLen < kLongFrame ) return usual_;
   if ( auto * const made = jumbo_.load( std::memory_order_acquire ) ) return made;
   const std::lock_guard< std::mutex > lock( makingJumbo_ );
   if ( jumbo_ == nullptr )
      jumbo_ = rte_pktmbuf_pool_create( "jumbo", kJumboBuffers, kCache / 4, 0, kJumboRoom, SOCKET_ID_ANY );
   return jumbo_;
}

std::vector< Eal::Pool > Eal::pools() const {
   std::vector< Pool > pools;
   for ( const auto * pool : { usual_, jumbo_.load() } )
      if ( pool != nullptr )
         pools.push_back( { pool->name, pool->size, rte_mempool_avail_count( pool ), pool->elt_size } );
   return pools;
}

namespace {
Packet joined( rte_mbuf * mbuf ) {
   Packet packet( mbuf->pkt_len );
   auto * at = packet.data();
   for ( const auto * segment = mbuf; segment != nullptr; segment = segment->next )
      at = std::copy_n( rte_pktmbuf_mtod( segment, const std::uint8_t * ), segment->data_len, at );
   rte_pktmbuf_free( mbuf );
   return packet;
}

} // namespace

Packet Eal::packetOf( rte_mbuf * mbuf ) {
   if ( mbuf->nb_segs > 1 ) return joined( mbuf );
   auto * const begin = static_cast< std::uint8_t * >( mbuf->buf_addr );
   return {
        { begin, begin + mbuf->buf_len, mbuf, freeMbuf }, rte_pktmbuf_mtod( mbuf, std::uint8_t * ), mbuf->data_len };
}

rte_mbuf * Eal::mbufOf( Packet && packet, rte_mempool * pool ) {
   const auto size = packet.size();
   if ( packet.buffer().giveBack == freeMbuf ) {
      auto * const mbuf = static_cast< rte_mbuf * >( packet.buffer().owner );
      mbuf->data_off = std::uint16_t( packet.data() - packet.buffer().begin );
      mbuf->data_len = std::uint16_t( size );
      mbuf->pkt_len = std::uint32_t( size );
      packet.letGo();
      return mbuf;
   }
   const Packet gone = std::move( packet );
   auto * const mbuf = rte_pktmbuf_alloc( pool );
   if ( mbuf == nullptr ) return nullptr;
   auto * const room =
        size > rte_pktmbuf_tailroom( mbuf ) ? nullptr : rte_pktmbuf_append( mbuf, std::uint16_t( size ) );
   if ( room == nullptr ) {
      rte_pktmbuf_free( mbuf );
      return nullptr;
   }
   std::memcpy( room, gone.data(), size );
   return mbuf;
}

} // namespace Vexdp
