#ifndef HOST_RECORD_SCHEMA_DOCUMENTS_H_
#define HOST_RECORD_SCHEMA_DOCUMENTS_H_

#include <span>
#include <string_view>

namespace qdt::host {

// The schema of the document of a command whose answer has one form, whatever the layouts say.
struct SchemaDocument {
  std::string_view name;    // of the command, and in "$defs"
  std::string_view member;  // that tells it from all other documents; empty for what is a part of others
  std::string_view schema;

  bool IsPart() const { return member.empty(); }
};

std::span<const SchemaDocument> SchemaDocuments();

}  // namespace qdt::host

#endif  // HOST_RECORD_SCHEMA_DOCUMENTS_H_
