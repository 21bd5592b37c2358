#include "HostSamples.h"

#include <limits>

namespace Host {

prometheus::ClientMetric & Samples::sample( const char * name, const char * help, prometheus::MetricType type,
                                            Labels labels ) {
   auto at = families_.find( std::string_view( name ) );
   if ( at == families_.end() ) at = families_.emplace( name, prometheus::MetricFamily{ name, help, type, {} } ).first;
   auto & samples = at->second.metric;
   samples.emplace_back();
   samples.back().label = std::move( labels );
   return samples.back();
}

void Samples::gauge( const char * name, const char * help, double value, Labels labels ) {
   sample( name, help, prometheus::MetricType::Gauge, std::move( labels ) ).gauge.value = value;
}

void Samples::counter( const char * name, const char * help, double value, Labels labels ) {
   sample( name, help, prometheus::MetricType::Counter, std::move( labels ) ).counter.value = value;
}

void Samples::histogram( const char * name, const char * help, const Times & times ) {
   auto & histogram = sample( name, help, prometheus::MetricType::Histogram, {} ).histogram;
   histogram.sample_sum = times.sum();
   for ( size_t at = 0; at < times.counts().size(); ++at ) {
      histogram.sample_count += times.counts()[ at ];
      histogram.bucket.push_back( { histogram.sample_count, at < Times::bounds.size()
                                                                 ? Times::bounds[ at ]
                                                                 : std::numeric_limits< double >::infinity() } );
   }
}

Families Samples::take() {
   Families families;
   families.reserve( families_.size() );
   for ( auto & [ name, family ] : families_ ) families.push_back( std::move( family ) );
   families_.clear();
   return families;
}

} // namespace Host
