// Benchmark driver for the table store: one whole-table filter pass or one incremental
// addition, then the process's own peak RSS on standard error.
#include <sys/resource.h>

#include <chrono>
#include <cstring>
#include <iostream>
#include <string>

#include "tables/database_helper.h"
#include "tables/record_filters.h"

namespace pf = quelt::mail::postfix;
namespace db = quelt::mail::postfix::database;

int main(int argc, char* argv[])
{
    if (argc < 4) {
        std::cerr << "usage: tables_bench filter TABLE DOMAIN | add TABLE KEY VALUE\n";
        return 2;
    }
    const std::string mode = argv[1], table = argv[2];
    const auto start = std::chrono::steady_clock::now();
    if (mode == "filter") {
        pf::DatabaseHelper::filterRecords(
            table, db::ElementsFilter<db::NotInDomainFilter>(db::NotInDomainFilter(argv[3], false)));
    } else if (mode == "add" && argc == 5) {
        pf::DatabaseHelper::addRecord(table, argv[3], argv[4]);
    } else {
        std::cerr << "unknown mode " << mode << "\n";
        return 2;
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    rusage self{};
    ::getrusage(RUSAGE_SELF, &self);
    std::cerr << "seconds " << took.count() << " maxrss_kb " << self.ru_maxrss << "\n";
    return 0;
}
