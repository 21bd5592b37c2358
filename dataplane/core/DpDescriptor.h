// A file descriptor with an owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace Vexdp {

class Descriptor {
 public:
   explicit Descriptor( int fd = -1 ) : fd_( fd ) {}
   Descriptor( Descriptor && other ) noexcept : fd_( std::exchange( other.fd_, -1 ) ) {}
   Descriptor & operator=( Descriptor && other ) noexcept {
      std::swap( fd_, other.fd_ );
      return *this;
   }
   ~Descriptor() {
      if ( fd_ >= 0 ) close( fd_ );
   }
   // Negative: none.
   int fd() const { return fd_; }
   explicit operator bool() const { return fd_ >= 0; }
   // The caller has it.
   int release() { return std::exchange( fd_, -1 ); }

 private:
   int fd_;
};

} // namespace Vexdp
