// P.toml: the solver data a mesh file does not carry.
#include "host/outcome/project.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <set>
#include <toml++/toml.h>

namespace host::outcome {

namespace {

class TomlReader {
public:
    explicit TomlReader(const std::filesystem::path& file) : m_file(file) {}

    [[noreturn]] void fail(const toml::node& node, const std::string& message) const {
        throw ProjectError(m_file, node.source().begin.line, message);
    }
    [[noreturn]] void fail(std::size_t line, const std::string& message) const {
        throw ProjectError(m_file, line, message);
    }

    void checkKeys(const toml::table& table, const std::set<std::string>& allowed,
                   const std::string& where) const {
        for (const auto& [key, value] : table)
            if (allowed.count(std::string(key.str())) == 0) {
                std::string list;
                for (const std::string& a : allowed)
                    list += (list.empty() ? "" : ", ") + a;
                fail(value, "unknown key \"" + std::string(key.str()) + "\" in " + where +
                                " (expected " + list + ")");
            }
    }

    std::int64_t integer(const toml::table& table, const char* key,
                         const std::string& where) const {
        const toml::node* node = table.get(key);
        if (node == nullptr)
            fail(table, where + " has no " + key + " (an integer)");
        auto value = node->value_exact<std::int64_t>();
        if (!value)
            fail(*node, std::string(key) + " of " + where + " must be an integer");
        return *value;
    }

    // A number (an integer is taken too); fails with `what` when the node is anything else or
    // not finite.
    double number(const toml::node& node, const std::string& what) const {
        auto value = node.value<double>();
        if (!value || !(node.is_floating_point() || node.is_integer()))
            fail(node, what + " must be a number");
        if (!std::isfinite(*value))
            fail(node, what + " must be a finite number");
        return *value;
    }

    std::string text(const toml::node& node, const std::string& what) const {
        auto value = node.value_exact<std::string>();
        if (!value)
            fail(node, what + " must be a string");
        return *value;
    }

    std::array<double, 3> vector3(const toml::node& node, const std::string& what) const {
        const toml::array* array = node.as_array();
        if (array == nullptr || array->size() != 3)
            fail(node, what + " must be a vector of three numbers, e.g. [0.0, 0.0, -5000.0]");
        std::array<double, 3> v{};
        for (std::size_t i = 0; i < 3; ++i)
            v[i] = number(*array->get(i), what + " component " + std::to_string(i + 1));
        return v;
    }

    // An inline array of tables, e.g. pressure = [{ slab = 1, value = 3000.0 }].
    std::vector<const toml::table*> tables(const toml::node& node, const std::string& what) const {
        const toml::array* array = node.as_array();
        if (array == nullptr)
            fail(node, what + " must be a list of tables, e.g. [{ ... }, { ... }]");
        std::vector<const toml::table*> out;
        for (const toml::node& item : *array) {
            const toml::table* table = item.as_table();
            if (table == nullptr)
                fail(item, what + " must be a list of tables, e.g. [{ ... }, { ... }]");
            out.push_back(table);
        }
        return out;
    }

    ProjectData read() {
        toml::table root;
        try {
            root = toml::parse_file(m_file.string());
        } catch (const toml::parse_error& e) {
            fail(e.source().begin.line, "TOML syntax error: " + std::string(e.description()));
        }
        ProjectData data;
        checkKeys(root, {"title", "slab", "support", "load_case"}, "the top level");
        if (const toml::node* title = root.get("title")) {
            auto text = title->value_exact<std::string>();
            if (!text)
                fail(*title, "title must be a string");
            data.title = *text;
        }
        readSlabs(root, data);
        readSupports(root, data);
        readLoadCases(root, data);
        return data;
    }

private:
    const toml::array* arrayOfTables(const toml::table& root, const char* key) const {
        const toml::node* node = root.get(key);
        if (node == nullptr)
            return nullptr;
        const toml::array* array = node->as_array();
        if (array == nullptr || !array->is_array_of_tables())
            fail(*node, std::string(key) + " must be an array of tables, written [[" + key + "]]");
        return array;
    }

    void readSlabs(const toml::table& root, ProjectData& data) const {
        // No [[slab]] at all is valid data: the model of an empty mesh. Whether the mesh agrees
        // is LoadProject's check.
        const toml::array* slabs = arrayOfTables(root, "slab");
        if (slabs == nullptr)
            return;
        std::map<int, std::size_t> seen;
        for (const toml::node& node : *slabs) {
            const toml::table& t = *node.as_table();
            const std::size_t line = t.source().begin.line;
            const std::string where = "the [[slab]] at line " + std::to_string(line);
            checkKeys(t, {"tag", "name", "thickness", "young", "poisson", "density"}, "[[slab]]");
            SlabData slab;
            slab.line = line;
            std::int64_t tag = integer(t, "tag", where);
            if (tag < 1 || tag > INT32_MAX)
                fail(*t.get("tag"),
                     "tag of " + where + " must be a physical surface tag (1 or more)");
            slab.tag = static_cast<int>(tag);
            const toml::node* thickness = t.get("thickness");
            if (thickness == nullptr)
                fail(t, where + " (tag " + std::to_string(slab.tag) + ") has no thickness");
            auto value = thickness->value<double>(); // an integer thickness is fine too
            if (!value || !(thickness->is_floating_point() || thickness->is_integer()))
                fail(*thickness,
                     "thickness of slab " + std::to_string(slab.tag) + " must be a number");
            if (!std::isfinite(*value) || *value <= 0.0)
                fail(*thickness, "thickness of slab " + std::to_string(slab.tag) +
                                     " must be a positive finite number, found " +
                                     std::to_string(*value));
            slab.thickness = *value;
            if (const toml::node* name = t.get("name")) {
                auto text = name->value_exact<std::string>();
                if (!text)
                    fail(*name, "name of slab " + std::to_string(slab.tag) + " must be a string");
                slab.name = *text;
            }
            readMaterial(t, slab);
            if (auto [it, fresh] = seen.emplace(slab.tag, line); !fresh)
                fail(line, "slab tag " + std::to_string(slab.tag) +
                               " is given twice (first at line " + std::to_string(it->second) +
                               ")");
            data.slabs.push_back(std::move(slab));
        }
    }

    void readMaterial(const toml::table& t, SlabData& slab) const {
        const std::string of = " of slab " + std::to_string(slab.tag);
        if (const toml::node* node = t.get("young")) {
            slab.young = number(*node, "young" + of);
            if (*slab.young <= 0.0)
                fail(*node, "young" + of + " must be positive");
        }
        if (const toml::node* node = t.get("poisson")) {
            slab.poisson = number(*node, "poisson" + of);
            if (!(*slab.poisson > -1.0 && *slab.poisson < 0.5))
                fail(*node, "poisson" + of + " must lie between -1 and 0.5");
        }
        if (const toml::node* node = t.get("density")) {
            slab.density = number(*node, "density" + of);
            if (*slab.density < 0.0)
                fail(*node, "density" + of + " must not be negative");
        }
    }

    void readSupports(const toml::table& root, ProjectData& data) const {
        const toml::array* supports = arrayOfTables(root, "support");
        if (supports == nullptr)
            return;
        for (const toml::node& node : *supports) {
            const toml::table& t = *node.as_table();
            const std::size_t line = t.source().begin.line;
            const std::string where = "the [[support]] at line " + std::to_string(line);
            checkKeys(t, {"group", "fix"}, "[[support]]");
            SupportData support;
            support.line = line;
            const toml::node* group = t.get("group");
            if (group == nullptr)
                fail(t, where + " has no group (a physical curve or point name)");
            support.group = text(*group, "group of " + where);
            const toml::node* fix = t.get("fix");
            if (fix == nullptr)
                fail(t, where + " has no fix (a list of ux uy uz rx ry rz, or fixed, or pinned)");
            const toml::array* words = fix->as_array();
            if (words == nullptr || words->empty())
                fail(*fix, "fix of " + where +
                               " must be a list such as [\"ux\", \"uy\", \"uz\"], [\"fixed\"] "
                               "or [\"pinned\"]");
            static const char* const names[] = {"ux", "uy", "uz", "rx", "ry", "rz"};
            std::set<int> dofs;
            for (const toml::node& word : *words) {
                const std::string w = text(word, "an entry of fix of " + where);
                if (w == "fixed") {
                    dofs.insert({1, 2, 3, 4, 5, 6});
                    continue;
                }
                if (w == "pinned") {
                    dofs.insert({1, 2, 3});
                    continue;
                }
                int dof = 0;
                for (int k = 0; k < 6; ++k)
                    if (w == names[k])
                        dof = k + 1;
                if (dof == 0)
                    fail(word, "fix of " + where + " names \"" + w +
                                   "\"; expected ux, uy, uz, rx, ry, rz, fixed or pinned");
                dofs.insert(dof);
            }
            support.dofs.assign(dofs.begin(), dofs.end());
            data.supports.push_back(std::move(support));
        }
    }

    void readLoads(const toml::table& t, const ProjectData& data, LoadCaseData& lc) const {
        const std::string of = " of load case " + std::to_string(lc.id);
        if (const toml::node* node = t.get("self_weight")) {
            auto flag = node->value_exact<bool>();
            if (!flag)
                fail(*node, "self_weight" + of + " must be true or false");
            lc.selfWeight = *flag;
        }
        if (const toml::node* node = t.get("g")) {
            lc.g = number(*node, "g" + of);
            if (lc.g <= 0.0)
                fail(*node, "g" + of + " must be positive");
        }
        if (const toml::node* node = t.get("pressure")) {
            for (const toml::table* item : tables(*node, "pressure" + of)) {
                checkKeys(*item, {"slab", "value"}, "a pressure" + of);
                PressureLoad load;
                load.slab = static_cast<int>(integer(*item, "slab", "a pressure" + of));
                const bool known =
                    std::any_of(data.slabs.begin(), data.slabs.end(),
                                [&](const SlabData& slab) { return slab.tag == load.slab; });
                if (!known)
                    fail(*item, "a pressure" + of + " is on slab " + std::to_string(load.slab) +
                                    ", which no [[slab]] has as its tag");
                const toml::node* value = item->get("value");
                if (value == nullptr)
                    fail(*item, "a pressure" + of + " has no value (force per area)");
                load.value = number(*value, "the value of a pressure" + of);
                lc.pressure.push_back(load);
            }
        }
        readGroupLoads(t, "line_load", of, lc.lineLoads);
        readGroupLoads(t, "point_load", of, lc.pointLoads);
    }

    // combination = { 101 = 1.35, 102 = 1.5 }: component ids and their factors. Whether the
    // components exist and are no combinations is the combinations' own check.
    void readCombination(const toml::table& t, LoadCaseData& lc) const {
        const toml::node* node = t.get("combination");
        if (node == nullptr)
            return;
        const std::string of = "the combination of load case " + std::to_string(lc.id);
        const toml::table* table = node->as_table();
        if (table == nullptr || table->empty())
            fail(*node, of + " must be a table of load-case ids and factors, e.g. "
                             "{ 101 = 1.35, 102 = 1.5 }");
        if (lc.HasLoads())
            fail(*node, "load case " + std::to_string(lc.id) +
                            " is a combination and cannot have loads of its own");
        for (const auto& [key, value] : *table) {
            long id = 0;
            const std::string_view text = key.str();
            const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), id);
            if (ec != std::errc() || end != text.data() + text.size())
                fail(value, of + " names \"" + std::string(text) +
                                "\", which is not a load-case id (an integer)");
            lc.combination.emplace_back(id,
                                        number(value, of + ", the factor of " + std::string(text)));
        }
        std::sort(lc.combination.begin(), lc.combination.end());
    }

    void readGroupLoads(const toml::table& t, const char* key, const std::string& of,
                        std::vector<GroupLoad>& loads) const {
        const toml::node* node = t.get(key);
        if (node == nullptr)
            return;
        const std::string what = std::string("a ") + key + of;
        for (const toml::table* item : tables(*node, std::string(key) + of)) {
            checkKeys(*item, {"group", "value"}, what);
            GroupLoad load;
            const toml::node* group = item->get("group");
            if (group == nullptr)
                fail(*item, what + " has no group (a physical curve or point name)");
            load.group = text(*group, "the group of " + what);
            const toml::node* value = item->get("value");
            if (value == nullptr)
                fail(*item, what + " has no value (a vector [x, y, z])");
            load.value = vector3(*value, "the value of " + what);
            loads.push_back(std::move(load));
        }
    }

    void readLoadCases(const toml::table& root, ProjectData& data) const {
        const toml::array* cases = arrayOfTables(root, "load_case");
        if (cases == nullptr)
            return; // a project may have no load cases yet
        std::map<long, std::size_t> ids;
        std::map<long, std::size_t> indices;
        for (const toml::node& node : *cases) {
            const toml::table& t = *node.as_table();
            const std::size_t line = t.source().begin.line;
            const std::string where = "the [[load_case]] at line " + std::to_string(line);
            checkKeys(t,
                      {"id", "index", "valid", "name", "self_weight", "g", "pressure", "line_load",
                       "point_load", "combination"},
                      "[[load_case]]");
            LoadCaseData lc;
            lc.line = line;
            lc.id = static_cast<long>(integer(t, "id", where));
            std::int64_t index = integer(t, "index", where);
            if (index < 1 || index > INT32_MAX)
                fail(*t.get("index"),
                     "index of load case " + std::to_string(lc.id) +
                         " must be 1 or more (it numbers the STRINTG files from 0001)");
            lc.index = static_cast<long>(index);
            if (const toml::node* valid = t.get("valid")) {
                auto flag = valid->value_exact<bool>();
                if (!flag)
                    fail(*valid,
                         "valid of load case " + std::to_string(lc.id) + " must be true or false");
                lc.valid = *flag;
            }
            if (const toml::node* name = t.get("name")) {
                auto text = name->value_exact<std::string>();
                if (!text)
                    fail(*name, "name of load case " + std::to_string(lc.id) + " must be a string");
                lc.name = *text;
            }
            readLoads(t, data, lc);
            readCombination(t, lc);
            if (auto [it, fresh] = ids.emplace(lc.id, line); !fresh)
                fail(line, "load case id " + std::to_string(lc.id) +
                               " is given twice (first at line " + std::to_string(it->second) +
                               ")");
            if (auto [it, fresh] = indices.emplace(lc.index, line); !fresh)
                fail(line, "load case index " + std::to_string(lc.index) +
                               " is given twice (first at line " + std::to_string(it->second) +
                               ")");
            data.loadCases.push_back(std::move(lc));
        }
    }

    std::filesystem::path m_file;
};

} // namespace

ProjectData ReadProjectData(const std::filesystem::path& tomlFile) {
    std::error_code ec;
    if (!std::filesystem::exists(tomlFile, ec))
        throw ProjectError(tomlFile, 0, "cannot open the project data file: it does not exist");
    if (!std::filesystem::is_regular_file(tomlFile, ec))
        throw ProjectError(tomlFile, 0,
                           std::filesystem::is_directory(tomlFile, ec)
                               ? "is a folder, not the project data file"
                               : "is not a regular file (a pipe or a device?): the project data "
                                 "is read from a file");
    return TomlReader(tomlFile).read();
}

} // namespace host::outcome
