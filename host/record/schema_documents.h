#ifndef HOST_RECORD_SCHEMA_DOCUMENTS_H_
#define HOST_RECORD_SCHEMA_DOCUMENTS_H_

#include <span>
#include <string_view>

namespace qdt::host {

// A schema that stands as it is under its name in "$defs".
struct SchemaPart {
  std::string_view name;
  std::string_view schema;
};

// What records are made of.
std::span<const SchemaPart> SchemaParts();

// The schema of the document of a command whose answer has one form, whatever the layouts say. It may refer
// to the parts, to "place" (where something stands) and to "document" (any of the documents).
struct SchemaDocument : SchemaPart {  // by the name of the command
  std::string_view member;            // that tells it from all other documents
};

std::span<const SchemaDocument> SchemaDocuments();

}  // namespace qdt::host

#endif  // HOST_RECORD_SCHEMA_DOCUMENTS_H_
