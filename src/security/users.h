// The user accounts that access control checks. "admin" and "anonymous" are permanent; passwords go in and
// never come out. Of a name or password in a document 31 bytes count, as many as access control compares.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

void list_users(Service& service, const Request& request);
/// Changes the passwords of the users in a UserList document. Each change that fails is answered at once, in
/// front of the answer to the whole request.
void change_passwords(Service& service, const Request& request);
/// Adds the users of a User document, which may hold several pairs of userName and password, with level 2.
/// Stops at the first that cannot be added; those before it stay.
void add_users(Service& service, const Request& request);
/// Deletes every user but the permanent ones.
void delete_users(Service& service, const Request& request);

// One user: the text behind the last prefix of the URI is the name, as it stands there, without decoding.

/// A name of up to three characters is taken as a number, and any number from 1 on gives the first account
/// that is not permanent.
void read_user(Service& service, const Request& request);
/// Gives no answer at all for "anonymous", who has no password to change.
void change_password(Service& service, const Request& request);
/// Gives no answer at all for the permanent accounts.
void delete_user(Service& service, const Request& request);

}  // namespace psia
