#pragma once
// CKQ_Result: one result table of the store. Rows are mesh elements (each with its one-based
// element id, 0 for a row without element); columns are values. A cell nobody has set holds
// NaN (stored as NULL in P.GAR).
#include "host/outcome/result_key.h"

#include <string>
#include <vector>

class CKQ_Result {
public:
    // The most value columns a table may have; SetValue beyond it is refused.
    static constexpr unsigned long c_nMaxColumns = 64;

    CKQ_Result() = default;
    // A table with one row per entry of elementIds and `columns` value columns, all NaN.
    CKQ_Result(const CKQ_ResultKey& key, std::vector<unsigned long> elementIds,
               unsigned long columns = 0);

    const CKQ_ResultKey& GetKey() const { return m_key; }

    unsigned long GetCountOfRows() const { return static_cast<unsigned long>(m_elementIds.size()); }
    unsigned long GetCountOfColumns() const { return m_columns; }
    // The one-based mesh element id of a row, 0 when the row has none; std::out_of_range
    // outside the table.
    unsigned long GetElementId(unsigned long row) const;

    // Sets one cell. A column at or beyond the current count adds columns (new cells NaN) up to
    // c_nMaxColumns; a row outside the table or a column beyond the limit throws
    // std::out_of_range.
    void SetValue(unsigned long column, unsigned long row, double value);
    // One cell; NaN when unset; std::out_of_range outside the table.
    double GetValue(unsigned long column, unsigned long row) const;

    // Optional names of the value columns (for readers of P.GAR); missing names are "". A name
    // holding a comma throws std::invalid_argument.
    void SetColumnName(unsigned long column, std::string name);
    std::string GetColumnName(unsigned long column) const;
    const std::vector<std::string>& GetColumnNames() const { return m_columnNames; }

    friend bool operator==(const CKQ_Result& a, const CKQ_Result& b);

private:
    CKQ_ResultKey m_key;
    std::vector<unsigned long> m_elementIds;
    unsigned long m_columns = 0;
    std::vector<double> m_values; // row-major: m_values[row * m_columns + column]
    std::vector<std::string> m_columnNames;
};
