// Which children tell the entries of a list apart: there is no schema that would say it.
#pragma once

#include "model/tree.h"

#include <limits>
#include <map>

namespace pelmsim {

// A path that has named keys settles them for its list. Otherwise the first leaf counts, as XML of
// YANG data puts keys first: where elements of one name stand side by side, or where that leaf is
// called "name", "id", "key" or "index". Leaves that stand side by side are their own keys.
//
// What was learnt stays, so that an entry keeps its path when its neighbours come and go.
class key_book {
public:
    // Throw problem when more bytes than so many would be known then.
    void learn(const data_path& path, std::size_t most = unlimited);
    void learn(const tree& configuration, std::size_t most = unlimited);

    std::vector<path_key> keys_of(const xmlNode* element) const;

    // The path of one element, in the notation of the path that selected it.
    data_path path_of(const data_path& notation, const xmlNode* element) const;

private:
    static constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();
    using key_names = std::vector<std::string>;

    void learn(const xmlNode* parent, std::string& names, std::size_t most);
    void keep(const std::string& names, key_names keys, std::size_t most);

    std::map<std::string, key_names> names_; // by the names of the path
    std::size_t weight_ = 0;
};

struct difference {
    data_path path;
    int oper; // CONFIG_OP_ADD, CONFIG_OP_RM or CONFIG_OP_MOD
};

// What a path names and is not the same in both: what went, last first; then the rest in order.
std::vector<difference> differences(const tree& before, const tree& after, const data_path& path,
                                    const key_book& keys);

// Copies into target what source has and it lacks.
void add_missing(xmlNode* target, const xmlNode* source, const key_book& keys);

} // namespace pelmsim
