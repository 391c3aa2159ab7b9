// P.toml: the solver data a mesh file does not carry.
#include "host/outcome/project.h"

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

    ProjectData read() {
        toml::table root;
        try {
            root = toml::parse_file(m_file.string());
        } catch (const toml::parse_error& e) {
            fail(e.source().begin.line, "TOML syntax error: " + std::string(e.description()));
        }
        ProjectData data;
        checkKeys(root, {"title", "slab", "load_case"}, "the top level");
        if (const toml::node* title = root.get("title")) {
            auto text = title->value_exact<std::string>();
            if (!text)
                fail(*title, "title must be a string");
            data.title = *text;
        }
        readSlabs(root, data);
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
            checkKeys(t, {"tag", "name", "thickness"}, "[[slab]]");
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
            if (auto [it, fresh] = seen.emplace(slab.tag, line); !fresh)
                fail(line, "slab tag " + std::to_string(slab.tag) +
                               " is given twice (first at line " + std::to_string(it->second) +
                               ")");
            data.slabs.push_back(std::move(slab));
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
            checkKeys(t, {"id", "index", "valid", "name"}, "[[load_case]]");
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
    if (!std::filesystem::is_regular_file(tomlFile, ec))
        throw ProjectError(tomlFile, 0, "cannot open the project data file");
    return TomlReader(tomlFile).read();
}

} // namespace host::outcome
