#include "DpCleanse.h"

#include "vex/ipsec.pb.h"

#include <grpcpp/support/slice.h>
#include <openssl/crypto.h>

namespace Vexdp {

namespace {

void overwrite( const std::string & bytes ) { OPENSSL_cleanse( const_cast< char * >( bytes.data() ), bytes.size() ); }

} // namespace

void cleanse( const vex::pb::Batch & done ) {
   for ( const auto & request : done.request() )
      for ( const auto & arg : request.command().arg() ) overwrite( arg );
}

void cleanse( const bess::pb::CommandRequest & done ) { overwrite( done.arg().value() ); }

void cleanse( const grpc::Slice & done ) {
   OPENSSL_cleanse( const_cast< std::uint8_t * >( done.begin() ), done.size() );
}

void cleanse( const google::protobuf::Message & arg ) {
   const auto * const update = dynamic_cast< const vex::pb::IpsecUpdateSAArg * >( &arg );
   if ( update == nullptr ) return;
   for ( const auto & sa : update->saentries() ) {
      overwrite( sa.crypto_info() );
      overwrite( sa.auth_info() );
   }
}

} // namespace Vexdp
