-- password.sql - a new password: old, password, repeat. All sessions end, and one begins
-- for the browser that has changed it. Guesses at the old one are like those of a login, see
-- there. A second click on the form finds the new one stored already, changes nothing, and
-- gets a session of its own: it may have come with one that the first click has ended.
select 'again', null where :lang is not null;  -- the page in another language, no try

create temp table proof as  -- of the form; fits is 1 for the old password, 2 for the new one
    select 'old' as field, password as known, null as fits, null as made, null as turn from account;
.read turn.sql
update proof set fits = case when password_fits(ifnull(:old, ''), known) then 1
                             when password_fits(ifnull(:password, ''), known) then 2 else 0 end;
update proof set made = password_hash(:password)
    where fits = 1 and length(:password) between 8 and 64 and :password = :repeat;
.read counted.sql

.read weak.sql
select 'password', 'site.password.bad.weak' from weak where word = lower(:password);
select 'password', 'site.password.bad.length'
    where length(ifnull(:password, '')) not between 8 and 64
union all select 'repeat', 'site.password.bad.repeat'
    where ifnull(:password, '') <> ifnull(:repeat, '');
delete from sessions.login_failure where address = :address;
insert into sessions.session (secret, token, origin, address, password)
    select :newsecret, :newtoken, :neworigin, ifnull(:address, ''), iif(fits = 1, made, known) from proof;
update account set password = made from proof where fits = 1 and password = known;
.read newpassword.sql
select 'done', 'site.password.saved';
