// What the benchmarks need of processes: the data plane as a child, and what a process uses.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>

namespace Bench {

using Clock = std::chrono::steady_clock;

inline double secondsSince( Clock::time_point start ) {
   return std::chrono::duration< double >( Clock::now() - start ).count();
}

// Seconds of CPU that a process of ours has used, user and system, all its threads; 0 when it is gone.
double cpuOf( pid_t pid );
double cpuOfThisProcess();
// Resident, in bytes; 0 when it is gone.
std::size_t residentOf( pid_t pid );
// What this process has allocated and not freed, in bytes.
std::size_t allocated();
// The folder of this program.
std::string programFolder();

// The vexdp that lies beside this program, on a Unix socket of its own.
class DataPlane {
 public:
   DataPlane();
   DataPlane( const DataPlane & ) = delete;
   DataPlane & operator=( const DataPlane & ) = delete;
   ~DataPlane();

   std::string address() const { return "unix:" + directory_ + "/socket"; }
   pid_t pid() const { return pid_; }
   // Kills it, and waits until it is gone.
   void kill();
   // Starts it again on the same address, and returns when it listens. Throws when it never does.
   void start();

 private:
   std::string directory_;
   pid_t pid_ = -1;
};

} // namespace Bench
