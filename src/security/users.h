// The user accounts that access control checks. "admin" and "anonymous" are permanent. No document shows a
// password. Names and passwords in documents are truncated to 31 bytes, as in access control.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

void read_users(Context& context, const Request& request);
/// Changes the passwords of the users in a UserList document. Clients receive a status 3 for each user whose
/// change failed, before the answer to the whole request.
void write_users(Context& context, const Request& request);
/// Adds the users of a User document, which may hold several pairs of userName and password, with level 2.
/// Stops at the first that cannot be added; the users before
/// it stay added.
void add_users(Context& context, const Request& request);
/// Deletes every user but the permanent ones.
void remove_users(Context& context, const Request& request);

// One user: its name is the URI's text after the route's prefix, not decoded.

/// A name of up to three characters is taken as a number, and any number from 1 on gives the first account
/// that is not permanent.
void read_user(Context& context, const Request& request);
/// Sends no answer for "anonymous", which has no password to change.
void write_user(Context& context, const Request& request);
/// Sends no answer for the permanent accounts.
void remove_user(Context& context, const Request& request);

}  // namespace psia
