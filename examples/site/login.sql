-- login.sql - the login page's form: password, and at the first visit repeat.
--
-- The password is looked at first, while nothing is locked, and then one transaction tells
-- whether the address may try at all, and counts a wrong try: of many at once each meets what
-- the one before has left. A password that cannot be looked at ends the script here, where
-- nothing has happened yet.
select null, null where :lang is not null;  -- the page in another language, no try

select 'password', 'site.login.bad.wait' from login_wait where address = :address;

create temp table proof as  -- of the try; fits is null while there is no password yet
    select password as known, null as fits, null as made from account;
update proof set fits = password_fits(ifnull(:password, ''), known);
update proof set made = password_hash(:password)
    where known is null and length(:password) between 8 and 64;

begin immediate;
select 'password', 'site.login.bad.wait' from login_wait where address = :address;
insert into login_failed select :address from proof where not fits;
commit;

begin immediate;
select 'password', 'site.login.bad.password' from proof where not fits
union all select 'password', 'site.password.bad.length' from account
    where password is null and length(ifnull(:password, '')) not between 8 and 64
union all select 'repeat', 'site.password.bad.repeat' from account
    where password is null and ifnull(:password, '') <> ifnull(:repeat, '')
union all select 'password', 'site.login.bad.password' from account, proof  -- it is new
    where iif(password is known, 1, password_fits(ifnull(:password, ''), password)) = 0;
update account set password = (select made from proof) where password is null;
delete from login_failure where address = :address;
delete from session where number not in (select number from live_session) or number = :sid;
insert into session (secret, token, origin) values (:newsecret, :newtoken, :neworigin);
commit;
