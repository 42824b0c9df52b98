#include "model/operation.h"

#include "model/problem.h"

#include <conf_api.h>

namespace pelmsim {
namespace {

constexpr struct {
    const char* name;
    int bit;
} oper_names[] = {
    {"none", CONFIG_OP_NONE}, {"add", CONFIG_OP_ADD},           {"rm", CONFIG_OP_RM},
    {"mod", CONFIG_OP_MOD},   {"chain", CONFIG_OP_CHAIN},       {"move", CONFIG_OP_MOVE},
    {"cfgr", CONFIG_OP_CFGR}, {"rollback", CONFIG_OP_ROLLBACK}, {"smooth", CONFIG_OP_SMOOTH},
};

} // namespace

std::string oper_text(int oper) {
    std::string text;
    for (const auto& [name, bit] : oper_names)
        if ((oper & bit) != 0)
            text += (text.empty() ? "" : "|") + std::string(name);
    return text.empty() ? "none" : text;
}

int oper_bit(const std::string& name) {
    for (const auto& each : oper_names)
        if (name == each.name)
            return each.bit;
    throw problem("\"" + name +
                  "\" is no operation: none, add, rm, mod, chain, move, cfgr, "
                  "rollback or smooth");
}

} // namespace pelmsim
