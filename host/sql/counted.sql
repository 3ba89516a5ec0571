-- counted.sql - the part of a script that has looked at a password: proof has what has come of
-- it. One transaction tells whether the address may try at all, and counts a wrong try, which
-- is an event: of many at once each meets what the one before has left. Of more than 1000
-- addresses or events the first make room: who has so many addresses has as many tries anyway.
begin;
delete from sessions.login_failure
    where at not between unixepoch() - 3600 and unixepoch()
       or rowid <= (select max(rowid) - 1000 from sessions.login_failure);
select field, 'site.login.bad.wait' from proof, sessions.login_wait where address = :address;
insert into sessions.login_failure select :address, 1, unixepoch() from proof where fits = 0
    on conflict (address) do update set failures = failures + 1, at = unixepoch();
insert into sessions.waiting_event (level, source, code, detail)
    select 'warning', 'system', 'login', ifnull(:address, '') from proof where fits = 0;
delete from sessions.waiting_event
    where id <= (select max(id) - 1000 from sessions.waiting_event);
commit;
select field, 'site.login.bad.password' from proof where fits = 0;
