// Server-wide relay and anti-spam settings carried into main.cf and the blacklist table.
#pragma once

#include <cstdint>
#include <list>
#include <string>

#include <boost/logic/tribool.hpp>

#include "config/maincf/main_cf_manager.h"
#include "tables/batch_database_helper.h"

namespace quelt::mail::postfix {

// Rebuilds smtpd_recipient_restrictions for one relay mode: the mode's fixed list first, then,
// in their old order, the old items whose first word is one of the kept names.
class SmtpdRecipientRestrictionsFilter {
public:
    enum Mode { AuthSmtp = 0, AuthNone = 1, Open = 2, Closed = 3 };

    SmtpdRecipientRestrictionsFilter(Mode mode, std::list<std::string> keep)
        : mode_(mode), keep_(std::move(keep)) {}

    // Fills `items` from the current value of the parameter.
    void operator()(const std::string& current, std::list<std::string>& items) const;

private:
    Mode mode_;
    std::list<std::string> keep_;
};

// Static operations; main.cf changes go through MainCfManager, one `postconf -e` each, and
// nothing is rolled back between them. Failures are PostfixConfigurationError (main.cf, table
// additions) and PostfixDatabaseError (table removals). Callers hand in checked values: no
// line breaks, blanks or commas inside an address, host or domain.
class SettingsManager {
public:
    static void setOpenRelay();
    static void setClosedRelay();
    // True/false turn SMTP authentication (and the matching relay mode) or the POP-before-SMTP
    // table in mynetworks on/off; indeterminate leaves that part alone.
    static void setAuthRelay(boost::tribool smtpAuth, boost::tribool popAuth);

    // Adds "<address>/<prefix>" (IPv6 in brackets) to mynetworks unless present.
    static void addWhiteNetwork(const std::string& address, std::uint16_t prefixLength);
    // Drops every mynetworks item holding the same address, whatever its prefix; loopback
    // addresses and items that are no addresses (table references) always stay.
    static void removeWhiteNetwork(const std::string& address);

    // Replaces the reject_rbl_client items of smtpd_client_restrictions with one per non-empty
    // host of the range, in order; the other client restrictions stay in place.
    template <class It>
    static void setRBLHosts(It first, It last)
    {
        std::list<std::string> hosts(first, last);
        writeRBLHosts(hosts);
    }

    // The sender domain as a "domain REJECT" record of the blacklist table.
    static void addBlackDomain(const std::string& domain);
    static void addBlackDomain(BatchDatabaseHelper& batch, const std::string& domain);
    static void removeBlackDomain(const std::string& domain);

    // mailbox_size_limit as a number; throws boost::bad_lexical_cast when it is none.
    static long long getMailboxSizeLimit();

private:
    static void rebuildRecipientRestrictions(SmtpdRecipientRestrictionsFilter::Mode mode);
    static void writeRBLHosts(const std::list<std::string>& hosts);
};

}  // namespace quelt::mail::postfix
