#ifndef TOOLS_NQEWEB_METRICS_ROUTES_H_
#define TOOLS_NQEWEB_METRICS_ROUTES_H_

#include "host/metrics/exporter.h"
#include "host/web/engines.h"
#include "host/web/routes.h"

namespace qdt::nqeweb {

// The engines as targets of a metrics server, under the names that the interface has for them.
std::vector<host::MetricsTarget> MetricsTargets(host::WebEngines *engines);

// Adds /metrics and /probe. The exporter outlives the routes.
void AddMetricsRoutes(host::Routes *routes, const host::MetricsExporter *exporter);

}  // namespace qdt::nqeweb

#endif  // TOOLS_NQEWEB_METRICS_ROUTES_H_
