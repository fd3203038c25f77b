#include "host/nacm/rules_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "host/base/fd.h"
#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/base/text_file.h"
#include "host/base/trust.h"
#include "host/omcc/libyang_memory.h"
#include "host/omcc/model.h"

namespace qdt::host {
namespace {

constexpr uint64_t kFileLimit = 1u << 20;
constexpr char kModule[] = "ietf-netconf-acm";

struct RulesFile {
  std::string path;
  std::string text;

  // The place of the first line that holds `word` between marks, for what is wrong with a value.
  std::string PlaceOf(const std::string &word) const {
    for (const std::string &marked : {'>' + word + '<', '"' + word + '"', word}) {
      const size_t at = text.find(marked);
      if (at != text.npos) return Place(1 + std::count(text.begin(), text.begin() + at, '\n'));
    }
    return path + ": ";
  }
  std::string Place(uint64_t line) const { return path + ':' + std::to_string(line) + ": "; }
};

// Who may write the rules gives himself every right, and who may read them learns whom to attack.
struct stat CheckWriters(const std::string &path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) throw SystemError("cannot read the rules in " + path);
  RequireTrusted(info.st_uid, "the place of rules " + path);
  if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0)
    throw HostError(path + ": others may write these rules (chmod go-w " + path + ')');
  return info;
}

void CheckRights(const std::string &path) {
  const struct stat info = CheckWriters(path);
  if ((info.st_mode & S_IROTH) != 0)
    throw HostError(path + ": everybody may read these rules (chmod o-r " + path + ')');
}

std::vector<RulesFile> ReadFiles(std::span<const std::string> paths) {
  std::vector<RulesFile> files;
  for (const std::string &path : paths) {
    std::vector<std::string> names{path};
    if (std::error_code error; std::filesystem::is_directory(path, error)) {
      CheckWriters(path);
      names.clear();
      for (const auto &entry : std::filesystem::directory_iterator(path, error)) {
        const std::string ending = entry.path().extension();
        if (ending == ".xml" || ending == ".json") names.push_back(entry.path());
      }
      if (error) throw HostError("cannot read the directory of rules " + path + ": " + error.message());
      if (names.empty()) throw HostError(path + ": there is no file of rules (*.xml or *.json)");
      std::ranges::sort(names);
    }
    for (const std::string &name : names) {
      CheckRights(name);
      files.push_back({name, ReadTextFile(name, kFileLimit)});
    }
  }
  return files;
}

// libyang tells the place as "..., line number 7."
uint64_t LineOf(const ly_err_item *error) {
  const char *mark = error->path != nullptr ? strcasestr(error->path, "line number ") : nullptr;
  return mark != nullptr ? std::strtoull(mark + std::strlen("line number "), nullptr, 10) : 0;
}

std::string ValueOf(const lyd_node *parent, const char *name) {
  const lyd_node *leaf = FindChild(parent, name);
  return leaf != nullptr ? lyd_get_value(leaf) : "";
}

std::vector<std::string> ValuesOf(const lyd_node *parent, const char *name) {
  std::vector<std::string> values;
  for (const lyd_node *each = lyd_child(parent); each != nullptr; each = each->next) {
    if (std::strcmp(LYD_NAME(each), name) == 0) values.emplace_back(lyd_get_value(each));
  }
  return values;
}

// libyang tells no line of what is missing. It looks for an action in each rule, which is all that must be
// there beside keys: the line of the rule's name says where.
std::string PlaceOfMissing(const ly_ctx *context, const RulesFile &file, LYD_FORMAT format) {
  lyd_node *tree = nullptr;
  lyd_parse_data_mem(context, file.text.c_str(), format, LYD_PARSE_ONLY, 0, &tree);
  const OwnedTree owned(tree);
  for (const lyd_node *list = lyd_child(tree); list != nullptr; list = list->next) {
    if (std::strcmp(LYD_NAME(list), "rule-list") != 0) continue;
    for (const lyd_node *rule = lyd_child(list); rule != nullptr; rule = rule->next) {
      if (std::strcmp(LYD_NAME(rule), "rule") == 0 && FindChild(rule, "action") == nullptr)
        return file.PlaceOf(ValueOf(rule, "name"));
    }
  }
  return file.path + ": ";
}

OwnedTree Parse(const ly_ctx *context, const RulesFile &file) {
  const size_t first = file.text.find_first_not_of(" \t\r\n");
  if (first == file.text.npos)
    throw HostError(file.path + ":1: the file is empty (write the container nacm of " + kModule + ')');
  const LYD_FORMAT format = file.text[first] == '{' ? LYD_JSON : LYD_XML;
  ly_err_clean(const_cast<ly_ctx *>(context), nullptr);
  lyd_node *tree = nullptr;
  const MemoryWatch memory;
  const LY_ERR result =
      lyd_parse_data_mem(context, file.text.c_str(), format, LYD_PARSE_STRICT | LYD_PARSE_NO_STATE,
                         LYD_VALIDATE_NO_STATE | LYD_VALIDATE_PRESENT, &tree);
  OwnedTree owned(tree);
  if (result != LY_SUCCESS) {
    memory.Check();
    const ly_err_item *error = ly_err_first(context);
    const uint64_t line = error != nullptr ? LineOf(error) : 0;
    std::string why = error != nullptr && error->msg != nullptr ? error->msg : "libyang gave no reason";
    std::ranges::replace_if(
        why, [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    throw HostError((line != 0 ? file.Place(line) : PlaceOfMissing(context, file, format)) + why +
                    " (see the container nacm of " + kModule + ", RFC 8341)");
  }
  if (tree == nullptr) throw HostError(file.path + ":1: the container nacm of " + kModule + " is missing");
  return owned;
}

// Cuts "/module:node[module:key='value']/node..." as libyang writes paths: a step without a module's name is
// of that of the step before it.
std::vector<NacmStep> StepsOf(std::string_view path) {
  std::vector<NacmStep> steps;
  std::string module;
  size_t at = 0;
  const auto name = [&] {
    const size_t begin = at;
    while (at < path.size() && std::string_view("/[]=: ").find(path[at]) == std::string_view::npos) ++at;
    return std::string(path.substr(begin, at - begin));
  };
  const auto qualified = [&] {
    std::string first = name();
    if (at == path.size() || path[at] != ':') return first;
    ++at;
    module = std::move(first);
    return name();
  };
  while (at < path.size() && path[at] == '/') {
    ++at;
    if (at == path.size()) break;
    std::string node = qualified();
    steps.push_back({module, std::move(node), {}});
    while (at < path.size() && path[at] == '[') {
      ++at;
      while (at < path.size() && path[at] == ' ') ++at;
      const std::string key = qualified();
      const size_t quote = path.find_first_of("'\"", at);
      const size_t end = quote == path.npos ? quote : path.find(path[quote], quote + 1);
      if (end == path.npos) return {};
      steps.back().keys.emplace_back(key, path.substr(quote + 1, end - quote - 1));
      at = path.find(']', end);
      if (at == path.npos) return {};
      ++at;
    }
  }
  return at == path.size() ? steps : std::vector<NacmStep>();
}

uint8_t AccessesOf(const std::string &text) {
  constexpr std::pair<std::string_view, NacmAccess> kWords[] = {{"create", NacmAccess::kCreate},
                                                                {"read", NacmAccess::kRead},
                                                                {"update", NacmAccess::kUpdate},
                                                                {"delete", NacmAccess::kDelete},
                                                                {"exec", NacmAccess::kExec}};
  uint8_t accesses = 0;
  for (const auto &[word, access] : kWords) {
    if (text == "*" || text.find(word) != text.npos) accesses |= static_cast<uint8_t>(access);
  }
  return accesses;
}

// A rule about something that there is not would permit or deny nothing, and nobody would notice.
class RuleReader {
 public:
  RuleReader(const ly_ctx *context, const RulesFile &file) : context_(context), file_(file) {}

  NacmRule Read(const lyd_node *node) const {
    NacmRule rule;
    rule.name = ValueOf(node, "name");
    rule.module = ValueOf(node, "module-name");
    rule.accesses = AccessesOf(ValueOf(node, "access-operations"));
    rule.permits = ValueOf(node, "action") == "permit";
    const lys_module *module = FindModule(rule.module);
    if (const lyd_node *leaf = FindChild(node, "rpc-name")) {
      rule.what = NacmRule::What::kOperation;
      rule.subject = FindSubject(module, lyd_get_value(leaf), LYS_RPC, "operation");
    } else if (const lyd_node *other = FindChild(node, "notification-name")) {
      rule.what = NacmRule::What::kNotification;
      rule.subject = FindSubject(module, lyd_get_value(other), LYS_NOTIF, "notification");
    } else if (const lyd_node *path = FindChild(node, "path")) {
      rule.what = NacmRule::What::kData;
      rule.path = ReadPath(lyd_get_value(path));
    }
    CheckAccesses(rule);
    return rule;
  }

 private:
  const lys_module *FindModule(const std::string &name) const {
    if (name == "*") return nullptr;
    if (const lys_module *module = ly_ctx_get_module_implemented(context_, name.c_str())) return module;
    NearName near(name);
    std::string nearest;
    uint32_t index = 0;
    while (const lys_module *each = ly_ctx_get_module_iter(context_, &index)) {
      if (each->implemented != 0 && near.Offer(each->name)) nearest = each->name;
    }
    throw HostError(file_.PlaceOf(name) + "there is no module " + Quoted(name) +
                    DidYouMean(nearest, "the agent's yang-library lists them"));
  }

  std::string FindSubject(const lys_module *module, const std::string &name, uint16_t kind,
                          const char *what) const {
    if (name == "*") return name;
    NearName near(name);
    std::string nearest;
    uint32_t index = 0;
    while (const lys_module *each = ly_ctx_get_module_iter(context_, &index)) {
      if (each->implemented == 0 || (module != nullptr && each != module)) continue;
      const lysc_node *node = nullptr;
      while ((node = lys_getnext(node, nullptr, each->compiled, 0)) != nullptr) {
        if (node->nodetype != kind) continue;
        if (name == node->name) return name;
        if (near.Offer(node->name)) nearest = node->name;
      }
    }
    throw HostError(file_.PlaceOf(name) + "there is no " + what + ' ' + Quoted(name) +
                    (module != nullptr ? std::string(" in the module ") + module->name : "") +
                    DidYouMean(nearest, "\"*\" means all of them"));
  }

  // A rule that has none of the ways in which its subject is asked for never applies.
  void CheckAccesses(const NacmRule &rule) const {
    constexpr auto kExec = static_cast<uint8_t>(NacmAccess::kExec);
    constexpr auto kRead = static_cast<uint8_t>(NacmAccess::kRead);
    struct Ways {
      NacmRule::What subject;
      uint8_t accesses;
      const char *names;
    };
    static constexpr Ways kWays[] = {
        {NacmRule::What::kAny, 0xff, "all (leave them out for all)"},
        {NacmRule::What::kOperation, kExec, "exec, with which operations are asked for"},
        {NacmRule::What::kNotification, kRead, "read, with which notifications are heard"},
        {NacmRule::What::kData, 0xff & ~kExec,
         "create, read, update and delete, with which data is asked for"},
    };
    const Ways &ways = *std::ranges::find(kWays, rule.what, &Ways::subject);
    if ((rule.accesses & ways.accesses) != 0) return;
    throw HostError(file_.PlaceOf(rule.name) + "the rule " + Quoted(rule.name) +
                    " never applies: its access-operations lack " + ways.names);
  }

  std::vector<NacmStep> ReadPath(const std::string &path) const {
    if (path == "/") return {};
    std::vector<NacmStep> steps = StepsOf(path);
    std::string schema;
    for (const NacmStep &step : steps) schema += '/' + step.module + ':' + step.node;
    ly_err_clean(const_cast<ly_ctx *>(context_), nullptr);
    const lysc_node *node = steps.empty() ? nullptr : lys_find_path(context_, nullptr, schema.c_str(), 0);
    const std::string place = file_.PlaceOf(steps.empty() ? path : steps.back().node) + Quoted(path);
    if (node == nullptr)
      throw HostError(place +
                      " leads to no data of a module (write \"/prefix:node/...\", and \"/\" for all data)");
    if ((node->nodetype & (LYS_RPC | LYS_ACTION)) != 0)
      throw HostError(place + " is an operation and no data (name it by rpc-name)");
    if (node->nodetype == LYS_NOTIF)
      throw HostError(place + " is a notification and no data (name it by notification-name)");
    return steps;
  }

  const ly_ctx *context_;
  const RulesFile &file_;
};

bool Permits(const lyd_node *nacm, const char *name) { return ValueOf(nacm, name) == "permit"; }

bool IsGiven(const lyd_node *nacm, const char *name) {
  const lyd_node *leaf = FindChild(nacm, name);
  return leaf != nullptr && (leaf->flags & LYD_DEFAULT) == 0;
}

void AddGroup(const lyd_node *node, NacmRules *rules) {
  const std::string name = ValueOf(node, "name");
  const std::vector<std::string> users = ValuesOf(node, "user-name");
  for (auto &[group, members] : rules->groups) {
    if (group != name) continue;
    members.insert(members.end(), users.begin(), users.end());
    return;
  }
  rules->groups.emplace_back(name, users);
}

void AddList(const ly_ctx *context, const RulesFile &file, const lyd_node *node, NacmRules *rules) {
  NacmRuleList list{ValueOf(node, "name"), ValuesOf(node, "group"), {}};
  for (const NacmRuleList &other : rules->lists) {
    if (other.name == list.name)
      throw HostError(file.PlaceOf(list.name) + "another file has a list of rules " + Quoted(list.name) +
                      " (give one of them another name)");
  }
  const RuleReader reader(context, file);
  for (const lyd_node *each = lyd_child(node); each != nullptr; each = each->next) {
    if (std::strcmp(LYD_NAME(each), "rule") == 0) list.rules.push_back(reader.Read(each));
  }
  rules->lists.push_back(std::move(list));
}

void AddFile(const ly_ctx *context, const RulesFile &file, NacmRules *rules) {
  const OwnedTree tree = Parse(context, file);
  const lyd_node *nacm = tree.get();
  while (nacm != nullptr && std::strcmp(LYD_NAME(nacm), "nacm") != 0) nacm = nacm->next;
  if (nacm == nullptr) throw HostError(file.path + ":1: the container nacm of " + kModule + " is missing");
  if (IsGiven(nacm, "enable-nacm")) rules->enabled = ValueOf(nacm, "enable-nacm") == "true";
  if (IsGiven(nacm, "read-default")) rules->readByDefault = Permits(nacm, "read-default");
  if (IsGiven(nacm, "exec-default")) rules->execByDefault = Permits(nacm, "exec-default");
  for (const lyd_node *each = lyd_child(FindChild(nacm, "groups")); each != nullptr; each = each->next)
    AddGroup(each, rules);
  for (const lyd_node *each = lyd_child(nacm); each != nullptr; each = each->next) {
    if (std::strcmp(LYD_NAME(each), "rule-list") == 0) AddList(context, file, each, rules);
  }
}

// Rules of a group that nobody can be in are a slip.
void CheckGroups(std::span<const RulesFile> files, const NacmRules &rules) {
  for (const NacmRuleList &list : rules.lists) {
    for (const std::string &name : list.groups) {
      if (name == "*") continue;
      NearName near(name);
      std::string nearest;
      bool known = false;
      for (const auto &[group, users] : rules.groups) {
        known |= group == name;
        if (near.Offer(group)) nearest = group;
      }
      if (known) continue;
      const auto holds = [&](const RulesFile &file) { return file.text.find(list.name) != file.text.npos; };
      const auto file = std::ranges::find_if(files, holds);
      throw HostError((file != files.end() ? file->PlaceOf(name) : std::string()) + "there is no group " +
                      Quoted(name) + DidYouMean(nearest, "list it under groups"));
    }
  }
}

}  // namespace

NacmRules ReadNacmRules(const ly_ctx *context, std::span<const std::string> paths) {
  NacmRules rules;
  const std::vector<RulesFile> files = ReadFiles(paths);
  for (const RulesFile &file : files) AddFile(context, file, &rules);
  CheckGroups(files, rules);
  return rules;
}

}  // namespace qdt::host
