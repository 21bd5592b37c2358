// The router description: a YAML file, of which JSON is a part.
#pragma once

#include "HostRouteFile.h"
#include "HostSection.h"
#include "HostSourceErrors.h"

#include <map>
#include <optional>

namespace Host {

class Description {
 public:
   // A description of nothing.
   Description() = default;
   // Nothing when the file cannot be read as YAML at all. Whatever else is wrong is an error of its own, and the rest
   // is used.
   static std::optional< Description > read( const std::string & path, SourceErrors & errors );

   // Brings the state in line: what the description told before and tells no more goes, what differs is changed, and
   // nothing else is touched. An object whose entry is wrong stays as it was. Once: secrets are forgotten.
   void apply( RouterState & state, SourceErrors & errors ) const;

   const RouteFileConfig & routeFile() const { return routeFile_; }
   // Whether the kernel beside the router gets its routes.
   bool kernelRoutes() const { return kernelRoutes_; }
   // Whether the kernel is told what has become of its own.
   bool kernelOffload() const { return kernelOffload_; }

 private:
   struct Told {
      const Section * section;
      Entry entry;
   };
   class WrongEntries;
   using Keys = std::map< const Section *, std::set< std::string > >;

   void readSection( const Section & section, const YAML::Node & node, SourceErrors & errors );
   void readEntry( const Section & section, const Entry & entry, SourceErrors & errors );
   void readRouteFile( const Entry & entry );
   void delOthers( RouterState & state, SourceErrors * errors ) const;
   void replaceAll( RouterState & state, const Section & section, SourceErrors & errors, WrongEntries & wrong ) const;

   std::string path_;
   std::vector< Told > entries_; // in the order of the sections
   Keys keys_;
   RouteFileConfig routeFile_;
   bool kernelRoutes_ = true;
   bool kernelOffload_ = true;
};

} // namespace Host
