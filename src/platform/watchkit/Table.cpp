#include "platform/watchkit/Table.h"

#include <stdexcept>

#include "platform/log/Log.h"
#include "platform/watchkit/Group.h"

namespace vexo::watchkit {

namespace {

void detachRows(const std::vector<TableRow>& rows) {
    for (const TableRow& row : rows) {
        if (row.group)
            row.group->detach();
    }
}

} // namespace

Table::Table(ObjectInit init)
    : InterfaceObject(kKind, std::move(init)) {}

Table::~Table() {
    detachRows(m_rows);
}

Table& Table::nil() {
    static Table standIn{ObjectInit{}};
    return standIn;
}

Table::IndexSet Table::indexesInRange(std::size_t location, std::size_t length) {
    IndexSet indexes;
    for (std::size_t i = 0; i < length; ++i)
        indexes.insert(indexes.end(), location + i);
    return indexes;
}

void Table::setRowTypes(const std::vector<std::string>& rowTypes) {
    if (!acceptChange("setRowTypes") || !canMakeRows("setRowTypes"))
        return;
    std::vector<TableRow> rows;
    rows.reserve(rowTypes.size());
    for (const std::string& rowType : rowTypes)
        rows.push_back(makeRow(rowType));
    replaceRows(std::move(rows));
}

void Table::setNumberOfRows(std::size_t count, std::string_view rowType) {
    if (!acceptChange("setNumberOfRows") || !canMakeRows("setNumberOfRows"))
        return;
    std::vector<TableRow> rows;
    rows.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        rows.push_back(makeRow(rowType));
    replaceRows(std::move(rows));
}

void Table::insertRowsAtIndexes(const IndexSet& indexes, std::string_view rowType) {
    if (!acceptChange("insertRowsAtIndexes") || !canMakeRows("insertRowsAtIndexes"))
        return;
    std::size_t inserted = 0;
    for (std::size_t index : indexes) {
        if (index > m_rows.size() + inserted) {
            throw std::out_of_range("insertRowsAtIndexes: index " + std::to_string(index) + " beyond the " +
                                    std::to_string(m_rows.size() + inserted) + " rows of table " + identifier());
        }
        ++inserted;
    }
    if (indexes.empty())
        return;
    for (std::size_t index : indexes)
        m_rows.insert(m_rows.begin() + static_cast<std::ptrdiff_t>(index), makeRow(rowType));
    didChange();
}

void Table::removeRowsAtIndexes(const IndexSet& indexes) {
    if (!acceptChange("removeRowsAtIndexes"))
        return;
    if (!indexes.empty() && *indexes.rbegin() >= m_rows.size()) {
        throw std::out_of_range("removeRowsAtIndexes: index " + std::to_string(*indexes.rbegin()) +
                                " is not one of the " + std::to_string(m_rows.size()) + " rows of table " +
                                identifier());
    }
    if (indexes.empty())
        return;
    for (auto index = indexes.rbegin(); index != indexes.rend(); ++index) {
        auto row = m_rows.begin() + static_cast<std::ptrdiff_t>(*index);
        if (row->group)
            row->group->detach();
        m_rows.erase(row);
    }
    didChange();
}

std::shared_ptr<RowController> Table::rowControllerAtIndex(std::size_t index) const {
    return index < m_rows.size() ? m_rows[index].controller : nullptr;
}

void Table::detach() {
    InterfaceObject::detach();
    // Nothing is shown any more: the rows go, even when someone still holds the table.
    detachRows(m_rows);
    m_rows.clear();
}

void Table::replaceRows(std::vector<TableRow> rows) {
    if (rows.empty() && m_rows.empty())
        return;
    detachRows(m_rows);
    m_rows = std::move(rows);
    didChange();
}

bool Table::canMakeRows(std::string_view operation) const {
    if (screen())
        return true;
    log::debug("watchkit", "table " + identifier() + " " + std::string(operation) + ": its screen is gone");
    return false;
}

TableRow Table::makeRow(std::string_view rowType) {
    return screen()->makeRow(layout(), rowType);
}

void Table::writeState(nlohmann::json& out, const FrameMap& frames) const {
    nlohmann::json rows = nlohmann::json::array();
    for (const TableRow& row : m_rows) {
        nlohmann::json entry = {{"rowType", row.typeName},
                                {"selectable", row.type != nullptr && row.type->selectable},
                                {"group", row.group ? row.group->toJson(frames, true) : nlohmann::json(nullptr)}};
        rows.push_back(std::move(entry));
    }
    out["rows"] = std::move(rows);
}

} // namespace vexo::watchkit
