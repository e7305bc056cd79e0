// The autoresponder hook: the autoresponder program is itself a mail handler, registered for
// every address that has an autoresponder switched on.
#pragma once

// What autoresponder_action does with the handler records.
enum autoresponder_action_value : int {
    AUTORESPONDER_ADD = 2,
    AUTORESPONDER_REMOVE = 3,
};

// Registers (AUTORESPONDER_ADD) or unregisters (AUTORESPONDER_REMOVE) the autoresponder handler
// for every mailname at every domain; both lists are separated by commas and blanks. Every
// mailname and domain is checked before the database is touched, and the records go in one
// transaction. Any other action does nothing. 0, or -1 after logging why.
int autoresponder_action(const char* mailnames, const char* domains, int action);
