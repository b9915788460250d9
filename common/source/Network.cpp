#include "Network.h"

#include <algorithm>
#include <stdexcept>

namespace zor {

namespace {

// Both tables remove by their record's own equality rule, so one helper serves them.
template <typename Record>
void eraseFirstEqual(std::vector<Record>& records, const Record& record) {
    const auto found = std::find(records.begin(), records.end(), record);
    if (found != records.end()) records.erase(found);
}

template <typename Vector>
auto& checkedAt(Vector& records, size_t i, const char* pszError) {
    if (i >= records.size()) throw std::runtime_error(pszError);
    return records[i];
}

const char ROUTE_INDEX_ERROR[] = "Invalid index for route table";
const char NIC_INDEX_ERROR[] = "Invalid index for NICs table";

}  // namespace

bool operator==(const Route& lhs, const Route& rhs) { return lhs.destination == rhs.destination; }

bool operator==(const NICInfo& lhs, const NICInfo& rhs) { return lhs.ipaddr == rhs.ipaddr; }

void RouteTable::AddRoute(const Route& route) { m_routeTable.push_back(route); }

void RouteTable::DelRoute(const Route& route) { eraseFirstEqual(m_routeTable, route); }

size_t RouteTable::GetTableSize() const { return m_routeTable.size(); }

Route& RouteTable::operator[](size_t i) { return checkedAt(m_routeTable, i, ROUTE_INDEX_ERROR); }

const Route& RouteTable::operator[](size_t i) const { return checkedAt(m_routeTable, i, ROUTE_INDEX_ERROR); }

void NICsTable::AddNICInfo(const NICInfo& info) { m_NICInfoTable.push_back(info); }

void NICsTable::DelNICInfo(const NICInfo& info) { eraseFirstEqual(m_NICInfoTable, info); }

size_t NICsTable::GetTableSize() const { return m_NICInfoTable.size(); }

NICInfo& NICsTable::operator[](size_t i) { return checkedAt(m_NICInfoTable, i, NIC_INDEX_ERROR); }

const NICInfo& NICsTable::operator[](size_t i) const { return checkedAt(m_NICInfoTable, i, NIC_INDEX_ERROR); }

}  // namespace zor
