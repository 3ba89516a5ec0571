-- sessions.sql - the database of visits: sessions, wrong passwords, and events on their way
-- into the log. All of it may go with a restart. The web program makes it where it is missing,
-- attached as "sessions", in a place that can always be written to: one can sign in and out
-- when the settings' disk is full or read-only, and a stranger's guesses write nothing there.
--
-- A time that lies ahead is void: the clock was wrong then, or has been set back.
--
-- No transaction changes this database and the settings: that would need room beside the
-- settings. Each change is one statement, or begins with "begin" and a statement that writes
-- to the one database ("begin immediate" would lock both), and a kill in between does no harm.

begin;

-- Sessions end after a quarter of an hour without a visit, and after half a day; and with the
-- password that they were begun with, whatever changes it. So a session that is begun for a
-- new password, before that is stored, comes to life in the very moment in which the others end.
create table if not exists sessions.session (
    number integer primary key autoincrement,  -- never used again
    secret text not null unique,  -- the cookie
    token text not null,          -- of its forms
    origin text not null,         -- where the browser came from, such as http://192.0.2.1
    address text not null,        -- and the address of the browser
    password text not null,       -- the account's, as it is stored
    started integer not null default (unixepoch()),
    used integer not null default (unixepoch()),
    flash text not null default ''  -- a text's id, to be shown once
) strict;
create view if not exists sessions.live_session as
    select *, used < unixepoch() - 60 as is_stale,
           exists (select 1 from waiting_event) as is_awaited
    from session
    where used between unixepoch() - 899 and unixepoch()
      and started between unixepoch() - 43199 and unixepoch();

-- Wrong passwords, by address: see counted.sql. After the third the next try must wait, longer
-- each time, a minute at most: nobody is locked out for good, and an address does not keep
-- others out.
create table if not exists sessions.login_failure (
    address text primary key,
    failures integer not null,
    at integer not null  -- of the last one
) strict;
create view if not exists sessions.login_wait as
    select address from login_failure
    where failures > 2 and unixepoch() between at and at + min(60, 1 << min(failures - 2, 6)) - 1;

-- Events that the settings' disk gets when somebody who is signed in looks at a page.
create table if not exists sessions.waiting_event (
    id integer primary key,
    at integer not null default (unixepoch()),
    level text not null, source text not null, code text not null, detail text not null
) strict;

commit;
