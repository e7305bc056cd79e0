// Server-wide relay and anti-spam settings carried into main.cf and the blacklist table.
#include "config/settings/settings_manager.h"

#include <vector>

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <boost/lexical_cast.hpp>

#include "model/names/ip_addr.h"
#include "tables/database_helper.h"
#include "tables/table_names.h"

namespace quelt::mail::postfix {

namespace {

constexpr const char* kRecipientRestrictions = "smtpd_recipient_restrictions";
constexpr const char* kClientRestrictions = "smtpd_client_restrictions";
constexpr const char* kMynetworks = "mynetworks";
constexpr const char* kPopLockTable = "hash:/var/spool/postfix/quelt/poplock";
constexpr const char* kNoRelayCheck = "check_client_access pcre:/var/spool/postfix/quelt/no_relay.re";
constexpr const char* kRblCheck = "reject_rbl_client";
constexpr const char* kPolicyService = "check_policy_service";

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Splits at the separators that stand outside "{ ... }" groups (Postfix keeps a braced
// argument whole, commas and blanks included); pieces are trimmed, empty ones dropped.
std::vector<std::string> splitOutsideBraces(const std::string& text, bool atBlanks)
{
    std::vector<std::string> pieces;
    std::string piece;
    int depth = 0;
    auto flush = [&] {
        boost::algorithm::trim(piece);
        if (!piece.empty())
            pieces.push_back(piece);
        piece.clear();
    };
    for (const char c : text) {
        if (c == '{')
            ++depth;
        else if (c == '}' && depth > 0)
            --depth;
        if (depth == 0 && (c == ',' || (atBlanks && isBlank(c))))
            flush();
        else
            piece.push_back(c);
    }
    flush();
    return pieces;
}

std::string firstWord(const std::string& piece)
{
    return piece.substr(0, piece.find(' '));
}

}  // namespace

void SmtpdRecipientRestrictionsFilter::operator()(const std::string& current,
                                                  std::list<std::string>& items) const
{
    items.push_back(mode_ == Open ? "permit" : "permit_mynetworks");
    items.push_back(kNoRelayCheck);
    switch (mode_) {
    case AuthSmtp:
        items.push_back("permit_sasl_authenticated");
        items.push_back("reject_unauth_destination");
        break;
    case Open:
        items.push_back("reject");
        break;
    default:
        items.push_back("reject_unauth_destination");
        break;
    }

    auto kept = [this](const std::string& word) {
        for (const std::string& name : keep_)
            if (word == name)
                return true;
        return false;
    };
    for (const std::string& piece : splitOutsideBraces(current, false)) {
        if (kept(firstWord(piece))) {
            items.push_back(piece);
            continue;
        }
        // A list separated by blanks alone gives one piece of several restrictions: a kept
        // restriction inside it survives with its argument.
        const std::vector<std::string> words = splitOutsideBraces(piece, true);
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (!kept(words[i]))
                continue;
            if (i + 1 < words.size()) {
                items.push_back(words[i] + " " + words[i + 1]);
                ++i;
            } else {
                items.push_back(words[i]);
            }
        }
    }
}

void SettingsManager::rebuildRecipientRestrictions(SmtpdRecipientRestrictionsFilter::Mode mode)
{
    SmtpdRecipientRestrictionsFilter filter(mode, {kPolicyService});
    MainCfManager::getInstance().filterStringValues(kRecipientRestrictions, filter);
}

void SettingsManager::setOpenRelay()
{
    rebuildRecipientRestrictions(SmtpdRecipientRestrictionsFilter::Open);
}

void SettingsManager::setClosedRelay()
{
    rebuildRecipientRestrictions(SmtpdRecipientRestrictionsFilter::Closed);
}

void SettingsManager::setAuthRelay(boost::tribool smtpAuth, boost::tribool popAuth)
{
    MainCfManager& mainCf = MainCfManager::getInstance();
    if (smtpAuth) {
        mainCf.replaceStringValue("smtpd_sasl_auth_enable", "yes");
        rebuildRecipientRestrictions(SmtpdRecipientRestrictionsFilter::AuthSmtp);
    } else if (!smtpAuth) {
        mainCf.replaceStringValue("smtpd_sasl_auth_enable", "no");
        rebuildRecipientRestrictions(SmtpdRecipientRestrictionsFilter::AuthNone);
    }
    if (popAuth)
        mainCf.appendStringValue(kMynetworks, kPopLockTable);
    else if (!popAuth)
        mainCf.removeListElement(kMynetworks, kPopLockTable);
}

void SettingsManager::addWhiteNetwork(const std::string& address, std::uint16_t prefixLength)
{
    const Network::IPAnyAddr network(address, prefixLength);
    MainCfManager::getInstance().appendStringValue(kMynetworks, network.to_quoted_string());
}

void SettingsManager::removeWhiteNetwork(const std::string& address)
{
    if (isLoopbackIP(address.c_str()))
        return;
    const Network::IPAnyAddr removed(address);
    MainCfManager& mainCf = MainCfManager::getInstance();
    std::list<std::string> items;
    mainCf.getList(kMynetworks, items);
    std::list<std::string> kept;
    bool found = false;
    for (const std::string& item : items) {
        if (item.empty())
            continue;
        const Network::IPAnyAddr network(item);
        // Table references and host names are no addresses and never match.
        if (network.family() != 0 && network.addr_eq(removed))
            found = true;
        else
            kept.push_back(item);
    }
    if (found)
        mainCf.setList(kMynetworks, kept);
}

void SettingsManager::writeRBLHosts(const std::list<std::string>& hosts)
{
    MainCfManager& mainCf = MainCfManager::getInstance();
    std::vector<std::string> items;
    for (const std::string& piece : splitOutsideBraces(mainCf.getStringValue(kClientRestrictions, false), false)) {
        if (piece.find(kRblCheck) == std::string::npos) {
            items.push_back(piece);
            continue;
        }
        // A piece of several restrictions separated by blanks loses only its RBL checks.
        std::vector<std::string> rest;
        const std::vector<std::string> words = splitOutsideBraces(piece, true);
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (words[i] == kRblCheck)
                ++i;  // and its zone
            else if (words[i].find(kRblCheck) == std::string::npos)
                rest.push_back(words[i]);
        }
        if (!rest.empty())
            items.push_back(boost::algorithm::join(rest, " "));
    }
    for (const std::string& host : hosts)
        if (!host.empty())
            items.push_back(std::string(kRblCheck) + " " + host);
    mainCf.replaceStringValue(kClientRestrictions, boost::algorithm::join(items, ", "));
}

void SettingsManager::addBlackDomain(BatchDatabaseHelper& batch, const std::string& domain)
{
    batch.addChange(tables::kBlacklists, domain, "REJECT");
}

void SettingsManager::addBlackDomain(const std::string& domain)
{
    BatchDatabaseHelper batch(true, true);
    addBlackDomain(batch, domain);
    batch.commit();
}

void SettingsManager::removeBlackDomain(const std::string& domain)
{
    DatabaseHelper::removeRecord(tables::kBlacklists, domain);
}

long long SettingsManager::getMailboxSizeLimit()
{
    return boost::lexical_cast<long long>(
        MainCfManager::getInstance().getStringValue("mailbox_size_limit", false));
}

}  // namespace quelt::mail::postfix
