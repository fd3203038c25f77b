#include "host/record/schema_documents.h"

namespace qdt::host {
namespace {

constexpr SchemaPart kParts[] = {
    {"count", R"({"type":"integer","minimum":0})"},
    {"stale", R"({
"description":"leads to a place where no entry is any more, or not to what is attached to the entry",
"type":"object","properties":{"stale":{"$ref":"#/$defs/address"}},"required":["stale"],
"additionalProperties":false})"},
    {"address", R"({
"description":"an address in the engine that is no place of a table",
"type":"string","pattern":"^0x[0-9a-f]{1,16}$"})"},
};

// Members that a document has besides are allowed nowhere. "place" says what a table's id and key are; where
// a document refers to it, it only says which of its members there are.
constexpr SchemaDocument kDocuments[] = {
    {{"usage", R"({
"description":"How full the tables are, the fullest first","type":"object","properties":{
"usage":{"type":"array","items":{"$ref":"#/$defs/place","properties":{
"table":true,"id":true,
"entries":{"$ref":"#/$defs/count"},"capacity":{"$ref":"#/$defs/count"},
"percent":{"type":"number","minimum":0},
"bytes":{"type":"integer","minimum":0,"description":"storage of the table","x-unit":"bytes"}},
"required":["table","entries","capacity","percent","bytes"],"additionalProperties":false}},
"count":{"$ref":"#/$defs/count"}},
"required":["usage","count"],"additionalProperties":false})"},
     "usage"},
    {{"fields", R"({
"description":"The fields of a table or region","$ref":"#/$defs/place","properties":{
"table":true,"id":true,"region":true,"about":{"type":"string"},
"fields":{"type":"array","minItems":1,"items":{"type":"object","properties":{
"path":{"type":"string"},"in":{"enum":["key","key, record","record","part"]},
"kind":{"type":"string"},"bits":{"type":"string","pattern":"^[0-9]+(-[0-9]+)?$"},
"offset":{"type":"integer","minimum":0,"x-unit":"bytes"},
"width":{"type":"integer","minimum":1,"x-unit":"bits"},
"unit":{"type":"string"},"about":{"type":"string"}},
"required":["path","in","kind","offset","about"],"additionalProperties":false}},
"count":{"$ref":"#/$defs/count"}},
"required":["about","fields","count"],"additionalProperties":false})"},
     "fields"},
    {{"regions", R"({
"description":"The shared-memory regions","type":"object","properties":{
"regions":{"type":"array","items":{"type":"object","properties":{
"name":{"type":"string","minLength":1},"size":{"type":"integer","minimum":1,"x-unit":"bytes"},
"about":{"type":"string"}},
"required":["name","size","about"],"additionalProperties":false}},
"count":{"$ref":"#/$defs/count"}},
"required":["regions","count"],"additionalProperties":false})"},
     "regions"},
    {{"statistics", R"({
"description":"The engine's counters","type":"object","properties":{
"statistics":{"type":"array","items":{"type":"object","properties":{
"number":{"$ref":"#/$defs/count"},
"name":{"type":["string","null"],"minLength":1,"description":"null for a counter without one"},
"class":{"enum":["normal","discard","error"]},
"sum":{"type":"integer","minimum":0,"maximum":18446744073709551615,"x-role":"counter"},
"cores":{"type":"array","minItems":1,"description":"what each core has counted",
"items":{"type":"integer","minimum":0,"maximum":18446744073709551615,"x-role":"counter"}}},
"required":["number","name","class","sum","cores"],"additionalProperties":false}},
"count":{"$ref":"#/$defs/count"},"cores":{"type":"integer","minimum":1}},
"required":["statistics","count","cores"],"additionalProperties":false})"},
     "statistics"},
    {{"find", R"({
"description":"Where a value was found","type":"object","properties":{
"find":{"type":"string"},"kind":{"enum":["ipv4","ipv6","mac","interface","text"]},
"matches":{"type":"array","items":{"$ref":"#/$defs/place","properties":{
"table":true,"id":true,"key":true,"region":true,"field":{"type":"string","minLength":1},
"value":{"type":["string","integer","object"],"description":"an object: the key that a reference leads to"}},
"required":["field","value"],"dependentRequired":{"table":["key"]},"additionalProperties":false}},
"count":{"$ref":"#/$defs/count"},"truncated":{"type":"boolean"}},
"required":["find","kind","matches","count","truncated"],"additionalProperties":false})"},
     "find"},
    {{"explain", R"({
"description":"What an address is to the engine, step by step","type":"object","properties":{
"explain":{"type":"string"},"kind":{"enum":["ipv4","ipv6","mac"]},
"vpn":{"type":"integer","minimum":0,"maximum":65535,"description":"of neighbours and routes"},
"steps":{"type":"array","items":{"$ref":"#/$defs/place","properties":{
"step":{"type":"string","minLength":1},
"depth":{"$ref":"#/$defs/count","description":"steps that led there"},"table":true,"id":true,
"looked_for":{"type":"object","additionalProperties":{"type":["string","integer"]}},
"found":{"type":["object","null"],"description":"the record, or null"},"note":{"type":"string"}},
"required":["step","depth","table","looked_for","found","note"],"additionalProperties":false}},
"count":{"$ref":"#/$defs/count","description":"steps that found something"}},
"required":["explain","kind","vpn","steps","count"],"additionalProperties":false})"},
     "explain"},
    {{"check", R"({
"description":"Where the engine's state contradicts itself","type":"object","properties":{
"findings":{"type":"array","items":{"$ref":"#/$defs/place","properties":{
"severity":{"enum":["error","warning"]},"table":true,"id":true,"key":true,"region":true,
"field":{"type":["string","null"],"minLength":1,"description":"null: the entry, or the table, as a whole"},
"problem":{"type":"string","minLength":1}},
"required":["severity","field","problem"],"additionalProperties":false}},
"count":{"$ref":"#/$defs/count"}},
"required":["findings","count"],"additionalProperties":false})"},
     "findings"},
    {{"diff", R"({
"description":"What differs between two states of engines","type":"object","properties":{
"diff":{"type":"array","items":{"$ref":"#/$defs/place","properties":{
"table":true,"id":true,"key":true,"region":true,"change":{"enum":["added","removed","changed"]},
"fields":{"type":"object","minProperties":1,"description":"by their paths",
"additionalProperties":{"type":"object","properties":{
"from":{"type":["string","integer","boolean","object","null"]},
"to":{"type":["string","integer","boolean","object","null"]}},
"required":["from","to"],"additionalProperties":false}}},
"required":["change"],"dependentRequired":{"table":["key"]},
"if":{"properties":{"change":{"const":"changed"}}},"then":{"required":["fields"]},
"else":{"properties":{"fields":false}},"additionalProperties":false}},
"count":{"$ref":"#/$defs/count"}},
"required":["diff","count"],"additionalProperties":false})"},
     "diff"},
    {{"snapshot", R"({
"description":"What a file is, as snapshot --info tells","type":"object","properties":{
"snapshot":{"type":"object","properties":{
"file":{"type":"string"},
"kind":{"enum":["snapshot","running","left"],
"description":"a copy, the arena of a running engine, or one that an engine has left behind"},
"saved":{"type":"string","pattern":"^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3}Z$"},
"version":{"type":"string"},
"engine":{"type":"object","properties":{
"pid":{"$ref":"#/$defs/count"},
"started":{"type":"string","pattern":"^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3}Z$"},
"arena":{"type":"string"},"socket":{"type":"string"}},
"required":["pid","started","socket"],"additionalProperties":false},
"entries":{"$ref":"#/$defs/count"},
"tables":{"$ref":"#/$defs/count","description":"those that have entries"}},
"required":["file","kind","version","engine","entries","tables"],
"if":{"properties":{"kind":{"const":"snapshot"}}},"then":{"required":["saved"]},
"else":{"properties":{"saved":false}},"additionalProperties":false}},
"required":["snapshot"],"additionalProperties":false})"},
     "snapshot"},
    {{"sql", R"({
"description":"The rows of one statement, by the names of their columns","type":"object","properties":{
"rows":{"type":"array","items":{"type":"object",
"additionalProperties":{"type":["string","number","null"]}}},
"count":{"$ref":"#/$defs/count"}},
"required":["rows","count"],"additionalProperties":false})"},
     "rows"},
    {{"watch", R"({
"description":"One interval of a command that is repeated","type":"object","properties":{
"time":{"type":"string","pattern":"^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3}Z$"},
"seconds":{"type":"number","minimum":0,"x-unit":"s","description":"since the interval before; 0 in the first"},
"command":{"type":"array","minItems":1,"items":{"type":"string"}},
"answer":{"description":"a text of a command that has no JSON, null when it says nothing",
"oneOf":[{"type":["string","null"]},{"$ref":"#/$defs/document"}]},
"rates":{"type":"array","items":{"type":"object","properties":{
"table":true,"id":true,"key":true,"region":true,
"statistic":{"$ref":"#/$defs/count","description":"number of a counter"},
"field":{"type":["string","null"],"minLength":1,"description":"null for a counter without a name"},
"per_second":{"type":"number","minimum":0}},
"required":["field","per_second"],"dependentRequired":{"table":["key"]},"additionalProperties":false,
"if":{"required":["statistic"]},"then":{"properties":{"table":false,"region":false,"key":false}},
"else":{"$ref":"#/$defs/place","properties":{"field":{"type":"string"}}}}}},
"required":["time","seconds","command","answer","rates"],"additionalProperties":false})"},
     "answer"},
};

}  // namespace

std::span<const SchemaPart> SchemaParts() { return kParts; }
std::span<const SchemaDocument> SchemaDocuments() { return kDocuments; }

}  // namespace qdt::host
