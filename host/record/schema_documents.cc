#include "host/record/schema_documents.h"

namespace qdt::host {
namespace {

// Members that a document has besides are allowed only where it says what each of them is.
constexpr SchemaDocument kDocuments[] = {
    {"count", "", R"({"type":"integer","minimum":0})"},
    {"stale", "", R"({
"description":"leads to a place where no entry is any more, or not to what is attached to the entry",
"type":"object","properties":{"stale":{"$ref":"#/$defs/address"}},"required":["stale"],
"additionalProperties":false})"},
    {"address", "", R"({
"description":"an address in the engine that is no place of a table",
"type":"string","pattern":"^0x[0-9a-f]{1,16}$"})"},
    {"usage", "usage", R"({
"description":"How full the tables are, the fullest first","type":"object","properties":{
"usage":{"type":"array","items":{"type":"object","properties":{
"table":{"type":"string"},"id":{"type":"integer","minimum":0,"maximum":108},
"entries":{"$ref":"#/$defs/count"},"capacity":{"$ref":"#/$defs/count"},
"percent":{"type":"number","minimum":0,"maximum":100},
"bytes":{"type":"integer","minimum":0,"description":"storage of the table","x-unit":"bytes"}},
"required":["table","id","entries","capacity","percent","bytes"],"additionalProperties":false}},
"count":{"$ref":"#/$defs/count"}},
"required":["usage","count"],"additionalProperties":false})"},
    {"fields", "fields", R"({
"description":"The fields of a table or region","type":"object","properties":{
"table":{"type":"string"},"id":{"type":"integer","minimum":0,"maximum":108},
"region":{"type":"string"},"about":{"type":"string"},
"fields":{"type":"array","items":{"type":"object","properties":{
"path":{"type":"string"},"in":{"enum":["key","key, record","record","part"]},
"kind":{"type":"string"},"bits":{"type":"string"},
"offset":{"type":"integer","minimum":0,"x-unit":"bytes"},
"width":{"type":"integer","minimum":1,"x-unit":"bits"},
"unit":{"type":"string"},"about":{"type":"string"}},
"required":["path","in","kind","offset","about"],"additionalProperties":false}},
"count":{"$ref":"#/$defs/count"}},
"required":["fields","count"],"oneOf":[{"required":["table","id"]},{"required":["region"]}],
"additionalProperties":false})"},
    {"view", "view", R"({
"description":"The records of a query of a view; those of a table are as in its lists","type":"object","properties":{
"view":{"type":"string"},"id":{"type":"integer","minimum":0,"maximum":88},
"records":{"type":"array","items":{"type":"object"}},
"count":{"$ref":"#/$defs/count"},"truncated":{"type":"boolean"}},
"required":["view","id","records","count","truncated"],"additionalProperties":false})"},
    {"regions", "regions", R"({
"description":"The shared-memory regions","type":"object","properties":{
"regions":{"type":"array","items":{"type":"object","properties":{
"name":{"type":"string"},"size":{"type":"integer","minimum":1,"x-unit":"bytes"},"about":{"type":"string"}},
"required":["name","size"]}},
"count":{"$ref":"#/$defs/count"}},
"required":["regions","count"],"additionalProperties":false})"},
    {"statistics", "statistics", R"({
"description":"The engine's counters by name","type":"object","properties":{
"statistics":{"type":"array","items":{"type":"object","properties":{
"number":{"type":"integer","minimum":0},"name":{"type":"string"},"class":{"type":["string","integer"]},
"sum":{"type":"integer","minimum":0,"maximum":18446744073709551615,"x-role":"counter"},
"cores":{"type":"array","items":{"type":"integer","minimum":0,"maximum":18446744073709551615}}},
"required":["number","name","class","sum","cores"],"additionalProperties":false}},
"count":{"$ref":"#/$defs/count"},"cores":{"$ref":"#/$defs/count"}},
"required":["statistics","count","cores"],"additionalProperties":false})"},
    {"find", "find", R"({
"description":"Where a value was found","type":"object","properties":{
"find":{"type":"string"},"kind":{"type":"string"},
"matches":{"type":"array","items":{"type":"object","properties":{
"table":{"type":"string"},"id":{"type":"integer","minimum":0,"maximum":108},"key":{"type":"object"},
"region":{"type":"string"},"field":{"type":"string"},"value":{"type":["string","integer"]}},
"required":["field","value"],"oneOf":[{"required":["table","id","key"]},{"required":["region"]}],
"additionalProperties":false}},
"count":{"$ref":"#/$defs/count"},"truncated":{"type":"boolean"}},
"required":["find","kind","matches","count"],"additionalProperties":false})"},
    {"explain", "explain", R"({
"description":"What an address is to the engine, step by step","type":"object","properties":{
"explain":{"type":"string"},"kind":{"type":"string"},
"steps":{"type":"array","items":{"type":"object","properties":{
"step":{"type":"string"},"table":{"type":"string"},"looked_for":{"type":"object"},
"found":{"type":["object","null"]},"note":{"type":"string"}},
"required":["step","table"]}}},
"required":["explain","kind","steps"]})"},
    {"check", "findings", R"({
"description":"Where the engine's state contradicts itself","type":"object","properties":{
"findings":{"type":"array","items":{"type":"object","properties":{
"severity":{"enum":["error","warning"]},"table":{"type":"string"},"key":{"type":"object"},
"field":{"type":"string"}},
"required":["severity"]}},
"count":{"$ref":"#/$defs/count"}},
"required":["findings","count"]})"},
    {"diff", "diff", R"({
"description":"What differs between two states of engines","type":"object","properties":{
"diff":{"type":"array","items":{"type":"object","properties":{
"table":{"type":"string"},"id":{"type":"integer","minimum":0,"maximum":108},"region":{"type":"string"},
"change":{"enum":["added","removed","changed"]},"key":{"type":"object"},
"fields":{"type":"object","additionalProperties":{"type":"object","properties":{"from":true,"to":true},
"additionalProperties":false}}},
"required":["change"]}},
"count":{"$ref":"#/$defs/count"}},
"required":["diff","count"]})"},
    {"watch", "answer", R"({
"description":"One interval of a command that is repeated","type":"object","properties":{
"time":{"type":"string"},"seconds":{"type":"number","minimum":0,"x-unit":"s"},
"command":{"type":"array","items":{"type":"string"}},"answer":{"type":"object"},
"rates":{"type":"array","items":{"type":"object","properties":{
"table":{"type":"string"},"key":{"type":"object"},"field":{"type":"string"},"per_second":{"type":"number"}},
"required":["field","per_second"]}}},
"required":["answer"]})"},
};

}  // namespace

std::span<const SchemaDocument> SchemaDocuments() { return kDocuments; }

}  // namespace qdt::host
