#include "tools/nqeweb/metrics_routes.h"

#include "host/base/host_error.h"

namespace qdt::nqeweb {
namespace {

host::WebAnswer TextAnswer(std::string text) {
  host::WebAnswer answer;
  answer.contentType = host::MetricsExporter::kContentType;
  answer.body = std::move(text);
  return answer;
}

}  // namespace

std::vector<host::MetricsTarget> MetricsTargets(host::WebEngines *engines) {
  std::vector<host::MetricsTarget> targets;
  for (const host::WebEngine &engine : engines->all())
    targets.push_back({engine.ToldName(), engine.path(), engine.saved()});
  return targets;
}

void AddMetricsRoutes(host::Routes *routes, const host::MetricsExporter *exporter) {
  host::Route metrics;
  metrics.path = "/metrics";
  metrics.about =
      "metrics in the text format of Prometheus: those of the engine, or of several whether they are up";
  metrics.contentType = host::MetricsExporter::kContentType;
  metrics.run = [exporter](const host::RouteCall &) { return TextAnswer(exporter->Metrics()); };
  routes->Add(std::move(metrics));

  host::Route probe;
  probe.path = "/probe";
  probe.about = "the metrics of one engine; of one that cannot be read nqe_up is 0";
  host::WebParameter target;
  target.name = "target";
  target.about = "the engine's name";
  target.required = true;
  probe.parameters.push_back(target);
  probe.contentType = host::MetricsExporter::kContentType;
  probe.run = [exporter](const host::RouteCall &call) {
    std::optional<std::string> text = exporter->Probe(call.Text("target"));
    if (!text)
      throw host::WebProblem(
          404, "there is no engine " + host::Quoted(call.Text("target")) + "; /api/v1/engines lists them");
    return TextAnswer(std::move(*text));
  };
  routes->Add(std::move(probe));
}

}  // namespace qdt::nqeweb
