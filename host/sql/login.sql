-- login.sql - the login page's form: password, and at the first visit repeat.
--
-- The password is looked at first, while nothing is locked. One that cannot be looked at ends
-- the script there, where nothing has happened yet. The settings are written to at the first
-- visit alone.
select 'again', null where :lang is not null;  -- the page in another language, no try

create temp table proof as  -- of the try; fits is null while there is no password yet
    select 'password' as field, password as known, null as fits, null as made, null as turn from account;
.read turn.sql
update proof set fits = password_fits(ifnull(:password, ''), known);
update proof set made = password_hash(:password)
    where known is null and length(:password) between 8 and 64 and :password = :repeat;
.read counted.sql

.read weak.sql
select 'password', 'site.password.bad.weak' from proof join weak on word = lower(:password)
    where known is null;
select 'password', 'site.password.bad.length' from proof
    where known is null and length(ifnull(:password, '')) not between 8 and 64
union all select 'repeat', 'site.password.bad.repeat' from proof
    where known is null and ifnull(:password, '') <> ifnull(:repeat, '');
delete from sessions.login_failure where address = :address;
delete from sessions.session
    where number = :sid or number not in (select number from sessions.live_session);
insert into sessions.session (secret, token, origin, address, password)
    select :newsecret, :newtoken, :neworigin, ifnull(:address, ''), ifnull(known, made) from proof;
insert into sessions.waiting_event (level, source, code, detail)
    values ('info', 'system', 'signin', ifnull(:address, ''));
select 'done', null from proof, account where password = known;
select field, 'site.login.bad.password' from proof where fits;  -- it has been changed

-- The first visit. Of two at once the second has chosen the same password, or is too late.
update account set password = (select made from proof) where password is null;
.read newpassword.sql
