#include "host/outcome/result.h"

#include <cmath>
#include <limits>
#include <stdexcept>

namespace {
constexpr double kUnset = std::numeric_limits<double>::quiet_NaN();

// NaN cells compare equal to each other: they all mean "not set".
bool sameCell(double a, double b) {
    return (std::isnan(a) && std::isnan(b)) || a == b;
}
} // namespace

std::string CKQ_ResultKey::ToString() const {
    auto kind = [](Outcome64Enums::eDsElementType t) -> std::string {
        switch (t) {
        case Outcome64Enums::eDs_Slab:
            return "slab";
        case Outcome64Enums::eDs_LoadCase:
            return "load case";
        case Outcome64Enums::eDs_Combination:
            return "combination";
        case Outcome64Enums::eDs_Model:
            return "model";
        default:
            return "kind " + std::to_string(static_cast<int>(t));
        }
    };
    return host::com::ToString(m_resultType) + " " + kind(m_object.GetType()) + " " +
           std::to_string(m_object.GetID()) + ", " + kind(m_case.GetType()) + " " +
           std::to_string(m_case.GetNumber()) + "/" + std::to_string(m_case.GetSubCase()) + "/" +
           std::to_string(m_case.GetFlag() ? 1 : 0) + ", flags " + std::to_string(m_flags) +
           ", cs " + std::to_string(static_cast<int>(m_coordSystem)) + ", loc " +
           std::to_string(static_cast<int>(m_location)) + ", env " +
           std::to_string(static_cast<int>(m_envelope));
}

CKQ_Result::CKQ_Result(const CKQ_ResultKey& key, std::vector<unsigned long> elementIds,
                       unsigned long columns)
    : m_key(key), m_elementIds(std::move(elementIds)), m_columns(columns) {
    if (columns > c_nMaxColumns)
        throw std::out_of_range("a result table has at most " + std::to_string(c_nMaxColumns) +
                                " columns");
    m_values.assign(m_elementIds.size() * m_columns, kUnset);
}

unsigned long CKQ_Result::GetElementId(unsigned long row) const {
    if (row >= m_elementIds.size())
        throw std::out_of_range("row " + std::to_string(row) + " outside a table of " +
                                std::to_string(m_elementIds.size()) + " rows");
    return m_elementIds[row];
}

void CKQ_Result::SetValue(unsigned long column, unsigned long row, double value) {
    if (row >= m_elementIds.size())
        throw std::out_of_range("row " + std::to_string(row) + " outside a table of " +
                                std::to_string(m_elementIds.size()) + " rows");
    if (column >= c_nMaxColumns)
        throw std::out_of_range("column " + std::to_string(column) + " beyond the " +
                                std::to_string(c_nMaxColumns) + " columns a result table may have");
    if (column >= m_columns) {
        const unsigned long wider = column + 1;
        std::vector<double> values(m_elementIds.size() * wider, kUnset);
        for (std::size_t r = 0; r < m_elementIds.size(); ++r)
            for (unsigned long c = 0; c < m_columns; ++c)
                values[r * wider + c] = m_values[r * m_columns + c];
        m_values = std::move(values);
        m_columns = wider;
    }
    m_values[row * m_columns + column] = value;
}

double CKQ_Result::GetValue(unsigned long column, unsigned long row) const {
    if (row >= m_elementIds.size() || column >= m_columns)
        throw std::out_of_range("cell (" + std::to_string(column) + ", " + std::to_string(row) +
                                ") outside a table of " + std::to_string(m_columns) +
                                " columns and " + std::to_string(m_elementIds.size()) + " rows");
    return m_values[row * m_columns + column];
}

void CKQ_Result::SetColumnName(unsigned long column, std::string name) {
    if (column >= c_nMaxColumns)
        throw std::out_of_range("column " + std::to_string(column) + " beyond the column limit");
    // P.GAR keeps the names joined by commas.
    if (name.find(',') != std::string::npos)
        throw std::invalid_argument("a column name cannot hold a comma: \"" + name + "\"");
    if (column >= m_columnNames.size())
        m_columnNames.resize(column + 1);
    m_columnNames[column] = std::move(name);
}

std::string CKQ_Result::GetColumnName(unsigned long column) const {
    return column < m_columnNames.size() ? m_columnNames[column] : std::string();
}

bool operator==(const CKQ_Result& a, const CKQ_Result& b) {
    if (!(a.m_key == b.m_key) || a.m_elementIds != b.m_elementIds || a.m_columns != b.m_columns)
        return false;
    for (unsigned long c = 0; c < std::max(a.m_columnNames.size(), b.m_columnNames.size()); ++c)
        if (a.GetColumnName(c) != b.GetColumnName(c))
            return false;
    for (std::size_t i = 0; i < a.m_values.size(); ++i)
        if (!sameCell(a.m_values[i], b.m_values[i]))
            return false;
    return true;
}
