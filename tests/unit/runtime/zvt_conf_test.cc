// The panel configuration file: line rules and reports (its defaults are the mailname
// scenario's, the password hand-over through the environment the mailbox rows').
#include <syslog.h>
#include <unistd.h>

#include <fstream>

#include <gtest/gtest.h>

#include "support/capture.h"
#include "runtime/log.h"
#include "runtime/zvt_conf.h"

namespace {

struct Parsed {
    conf_data conf;
    std::string reports;
};

Parsed parse(const std::string& text)
{
    char path[] = "/tmp/zvt_conf_test.XXXXXX";
    const int fd = ::mkstemp(path);
    std::ofstream(path) << text;
    ::close(fd);
    quelt_log_init("console", 12, LOG_MAIL, 0, "test");
    Parsed result;
    {
        CaptureFd out(1), err(2);
        EXPECT_EQ(conf_read_file_r(path, result.conf), 0);
        result.reports = err.text();
    }
    ::unlink(path);
    return result;
}

std::string get(const Parsed& p, const std::string& key)
{
    return conf_get_r(key, p.conf).value_or("<none>");
}

TEST(ZvtConf, LineRules)
{
    const Parsed p = parse(
        "# comment\n"
        "   \n"
        "QUELT_MAILNAMES_D /srv/mail # where mail lives\n"
        "PRODUCT_ROOT_D\t/opt/zvt   \n"
        "HTTPD_SERVICE=httpd\n"
        "NO_VALUE   \n"
        "  TWICE first\n"
        "TWICE second\n"
        "-bad value\n"
        "LAST value without newline");
    EXPECT_EQ(get(p, "QUELT_MAILNAMES_D"), "/srv/mail");
    EXPECT_EQ(get(p, "PRODUCT_ROOT_D"), "/opt/zvt");
    EXPECT_EQ(get(p, "HTTPD_SERVICE"), "<none>");
    EXPECT_EQ(get(p, "HTTPD_SERVICE=httpd"), "<none>");
    EXPECT_EQ(get(p, "NO_VALUE"), "<none>");
    EXPECT_EQ(get(p, "TWICE"), "second");
    EXPECT_EQ(get(p, "LAST"), "value without newline");
    EXPECT_EQ(p.reports,
              "Invalid variable definition HTTPD_SERVICE=httpd\n\n"
              "Expected a space after variable name\n\n"
              "Invalid variable definition NO_VALUE   \n\nExpected a value\n"
              "Invalid variable definition -bad value\n\n"
              "Expected a space after variable name\n\n");
}

}  // namespace
