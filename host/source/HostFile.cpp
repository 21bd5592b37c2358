#include "HostFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace Host {

namespace {

constexpr size_t readBytes = 65536;

} // namespace

RegularFile::~RegularFile() {
   if ( fd_ >= 0 ) ::close( fd_ );
}

std::string RegularFile::open( const std::string & path ) {
   fd_ = ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK );
   if ( fd_ < 0 || fstat( fd_, &opened_ ) != 0 ) return std::strerror( errno );
   if ( S_ISDIR( opened_.st_mode ) ) return "it is a directory";
   return S_ISREG( opened_.st_mode ) ? "" : "it is no regular file";
}

std::string RegularFile::read( std::string & text, size_t most ) {
   const auto before = text.size();
   text.resize( before + most );
   ssize_t got;
   do {
      got = ::read( fd_, text.data() + before, most );
   } while ( got < 0 && errno == EINTR );
   text.resize( before + ( got > 0 ? static_cast< size_t >( got ) : 0 ) );
   return got < 0 ? std::strerror( errno ) : "";
}

bool RegularFile::changed() const {
   struct stat now {};
   return fstat( fd_, &now ) != 0 || now.st_size != opened_.st_size || now.st_mtim.tv_sec != opened_.st_mtim.tv_sec ||
          now.st_mtim.tv_nsec != opened_.st_mtim.tv_nsec;
}

std::string readFile( const std::string & path, size_t bytesMax, std::string & text ) {
   RegularFile file;
   if ( auto why = file.open( path ); !why.empty() ) return why;
   // At once: a text that grows leaves its bytes behind.
   text.reserve( std::min( file.size(), bytesMax ) + 2 * readBytes );
   while ( true ) {
      const auto before = text.size();
      if ( auto why = file.read( text, readBytes ); !why.empty() ) return why;
      if ( text.size() > bytesMax ) return "it is longer than " + std::to_string( bytesMax ) + " bytes";
      if ( text.size() == before ) return file.changed() ? "it changed while it was read" : "";
   }
}

LineFile::Next LineFile::next( std::string_view & line ) {
   while ( true ) {
      if ( const auto end = buffer_.find( '\n', at_ ); end != std::string::npos ) {
         line = std::string_view( buffer_ ).substr( at_, end - at_ );
         at_ = end + 1;
         return Next::line;
      }
      buffer_.erase( 0, at_ );
      at_ = 0;
      const auto before = buffer_.size();
      constexpr size_t longestLine = size_t( 1 ) << 20;
      if ( before > longestLine ) {
         why_ = "a line is longer than " + std::to_string( longestLine ) + " bytes";
         return Next::failed;
      }
      why_ = file_.read( buffer_, readBytes );
      if ( !why_.empty() ) return Next::failed;
      if ( buffer_.size() > before ) {
         empty_ = false;
         continue;
      }
      if ( file_.changed() ) return Next::changed;
      return before == 0 && !empty_ ? Next::end : Next::torn;
   }
}

} // namespace Host
