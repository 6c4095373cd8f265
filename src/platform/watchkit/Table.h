#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/watchkit/InterfaceObject.h"
#include "platform/watchkit/Screen.h"

// A list of rows, each of a row type from the layout, each with its own objects and row
// controller. See InterfaceObject for ownership and threads.
//
// Row indexes follow the host platform's rules: an index out of range in an insertion or
// removal throws std::out_of_range (where the platform raises its range exception) and
// changes nothing. A row type the layout does not know is logged and gives an empty row
// with a plain RowController, so that indexes still line up with what was asked.
namespace vexo::watchkit {

class RowController;

class Table final : public InterfaceObject {
public:
    static constexpr ObjectKind kKind = ObjectKind::Table;
    using IndexSet = std::set<std::size_t>;

    explicit Table(ObjectInit init);
    ~Table() override;
    [[nodiscard]] static Table& nil();

    // {location, ..., location + length - 1}.
    [[nodiscard]] static IndexSet indexesInRange(std::size_t location, std::size_t length);

    // Replaces every row: one row per element, of that row type.
    void setRowTypes(const std::vector<std::string>& rowTypes);
    // Replaces every row: `count` rows of `rowType`.
    void setNumberOfRows(std::size_t count, std::string_view rowType);
    // Inserts rows of `rowType` so that they end up at `indexes`. Throws std::out_of_range
    // when an index lies beyond the end (counting the rows inserted before it).
    void insertRowsAtIndexes(const IndexSet& indexes, std::string_view rowType);
    // Removes the rows at `indexes`. Throws std::out_of_range when one is not a row.
    void removeRowsAtIndexes(const IndexSet& indexes);

    [[nodiscard]] std::size_t numberOfRows() const { return m_rows.size(); }
    // The row controller of the row at `index`; nullptr when there is no such row.
    [[nodiscard]] std::shared_ptr<RowController> rowControllerAtIndex(std::size_t index) const;
    // The row controller at `index` as an `R`; nullptr when there is no such row or it is
    // of another class.
    template <class R> [[nodiscard]] std::shared_ptr<R> rowControllerAtIndex(std::size_t index) const {
        return std::dynamic_pointer_cast<R>(rowControllerAtIndex(index));
    }

    // Host side: the rows, in order.
    [[nodiscard]] const std::vector<TableRow>& rows() const { return m_rows; }
    // Host side: also releases the rows.
    void detach() override;

private:
    void writeState(nlohmann::json& out, const FrameMap& frames) const override;
    void replaceRows(std::vector<TableRow> rows);
    [[nodiscard]] TableRow makeRow(std::string_view rowType);
    // False (and logged) once the screen is gone: a table held past its screen makes no rows.
    [[nodiscard]] bool canMakeRows(std::string_view operation) const;

    std::vector<TableRow> m_rows;
};

} // namespace vexo::watchkit
