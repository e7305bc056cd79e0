// get_mbox_size of one mailbox, for timing the whole process from a shell script; can also
// write the mailbox's quota file first.
//   mbox_size_bench size <mailname> <domain>
//   mbox_size_bench quota <mailname> <domain> <bytes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "storage/mbox_quota.h"

int main(int argc, char* argv[])
{
    if (argc == 4 && std::strcmp(argv[1], "size") == 0) {
        std::printf("%lld\n", get_mbox_size(argv[2], argv[3], false));
        return 0;
    }
    if (argc == 5 && std::strcmp(argv[1], "quota") == 0)
        return store_mbox_quota(argv[3], argv[2], std::atoll(argv[4])) == 1 ? 0 : 1;
    std::fprintf(stderr, "usage: mbox_size_bench size|quota <mailname> <domain> [bytes]\n");
    return 1;
}
