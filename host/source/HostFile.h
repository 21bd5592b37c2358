// The files that the sources are read from: regular ones alone, so that no pipe holds the loop, and told from one that
// somebody else is still writing.
#pragma once

#include <string>
#include <string_view>
#include <sys/stat.h>

namespace Host {

// Owns the descriptor.
class RegularFile {
 public:
   RegularFile() = default;
   RegularFile( const RegularFile & ) = delete;
   RegularFile & operator=( const RegularFile & ) = delete;
   ~RegularFile();

   // Each gives why not, empty when it could be done.
   std::string open( const std::string & path );
   // Puts up to `most` bytes behind the text; none at the end.
   std::string read( std::string & text, size_t most );

   // In bytes, when it was opened.
   size_t size() const { return static_cast< size_t >( opened_.st_size ); }
   // Whether it was written to since it was opened. A file put in its place is another one, and changes nothing here.
   bool changed() const;

 private:
   int fd_ = -1;
   struct stat opened_ {};
};

// The whole of a regular file.
std::string readFile( const std::string & path, size_t bytesMax, std::string & text );

// A file read line by line.
class LineFile {
 public:
   enum class Next {
      line,
      end,     // it was read to its end and is whole
      torn,    // it ends within a line, or has no byte at all
      changed, // somebody wrote to it meanwhile
      failed   // `why` says it
   };

   std::string open( const std::string & path ) { return file_.open( path ); }
   // `line` is without its end, and good until the next call.
   Next next( std::string_view & line );
   const std::string & why() const { return why_; }

 private:
   RegularFile file_;
   std::string buffer_;
   size_t at_ = 0;
   bool empty_ = true;
   std::string why_;
};

} // namespace Host
