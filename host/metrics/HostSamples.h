// Values on their way to a snapshot. For the metrics' sources only: it brings the headers of the Prometheus library.
#pragma once

#include "HostMeters.h"

#include <map>
#include <prometheus/metric_family.h>
#include <string>
#include <vector>

namespace Host {

using Labels = std::vector< prometheus::ClientMetric::Label >;
using Families = std::vector< prometheus::MetricFamily >;

// A family is made with its first sample.
class Samples {
 public:
   void gauge( const char * name, const char * help, double value, Labels labels = {} );
   void counter( const char * name, const char * help, double value, Labels labels = {} );
   void histogram( const char * name, const char * help, const Times & times );
   // In order of names. Nothing is left.
   Families take();

 private:
   prometheus::ClientMetric & sample( const char * name, const char * help, prometheus::MetricType type,
                                      Labels labels );
   std::map< std::string, prometheus::MetricFamily, std::less<> > families_;
};

} // namespace Host
