// libFuzzer target of the master.cf grammar: whatever parses must write back to the same bytes,
// and every entry the panel would write from a parsed one must parse back to the same entry.
#include <cstdint>
#include <cstdlib>
#include <cstdio>
#include <sstream>
#include <string>

#include "config/master/master_cf_file.h"

namespace pf = quelt::mail::postfix;

namespace {

bool sameEntry(const pf::ModuleInfo& a, const pf::ModuleInfo& b)
{
    const auto same = [](boost::tribool x, boost::tribool y) -> bool {
        return (boost::indeterminate(x) && boost::indeterminate(y)) || (bool(x) && bool(y)) ||
               (bool(!x) && bool(!y));
    };
    return a.name == b.name && a.type == b.type && same(a.priv, b.priv) && same(a.unpriv, b.unpriv) &&
           same(a.chroot, b.chroot) && a.wakeup == b.wakeup && a.wakeupOnDemand == b.wakeupOnDemand &&
           a.maxproc == b.maxproc && a.command == b.command;
}

[[noreturn]] void failure(const char* what)
{
    std::fprintf(stderr, "master.cf fuzz: %s\n", what);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const char* text = reinterpret_cast<const char*>(data);
    const auto content = pf::parseMasterCf(text, size);
    if (!content)
        return 0;
    std::ostringstream out;
    content->write(out);
    if (out.str() != std::string(text, size))
        failure("written bytes differ from the parsed ones");
    for (const pf::ModuleInfo& info : content->modules()) {
        const std::string line = pf::formatModuleLine(info);
        const auto again = pf::parseMasterCf(line.data(), line.size());
        if (!again || again->modules().size() != 1 || !sameEntry(again->modules().front(), info))
            failure("a formatted entry does not parse back to itself");
    }
    return 0;
}
