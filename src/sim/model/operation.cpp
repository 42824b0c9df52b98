#include "model/operation.h"

#include "model/problem.h"

#include <conf_api.h>

namespace pelmsim {
namespace {

constexpr struct {
    const char* name;
    int bit;
} operations[] = {
    {"none", CONFIG_OP_NONE}, {"add", CONFIG_OP_ADD},           {"rm", CONFIG_OP_RM},
    {"mod", CONFIG_OP_MOD},   {"chain", CONFIG_OP_CHAIN},       {"move", CONFIG_OP_MOVE},
    {"cfgr", CONFIG_OP_CFGR}, {"rollback", CONFIG_OP_ROLLBACK}, {"smooth", CONFIG_OP_SMOOTH},
};

} // namespace

std::string oper_text(int oper) {
    std::string text;
    for (const auto& [name, bit] : operations)
        if ((oper & bit) != 0)
            text += (text.empty() ? "" : "|") + std::string(name);
    return text.empty() ? "none" : text;
}

int oper_bit(const std::string& name) {
    for (const auto& each : operations)
        if (name == each.name)
            return each.bit;
    throw problem("\"" + name +
                  "\" is no operation: none, add, rm, mod, chain, move, cfgr, "
                  "rollback or smooth");
}

std::vector<std::string> oper_names() {
    std::vector<std::string> names;
    for (const auto& each : operations)
        names.emplace_back(each.name);
    return names;
}

} // namespace pelmsim
