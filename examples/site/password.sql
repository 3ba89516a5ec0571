-- password.sql - a new password: old, password, repeat. All sessions end, and one begins
-- for the browser that has changed it. Guesses at the old one are like those of a login, see
-- there. A second click on the form finds the new one stored already: it changes nothing, and
-- has a session begin where the first click has ended its own.
select null, null where :lang is not null;  -- the page in another language, no try

select 'old', 'site.login.bad.wait' from login_wait where address = :address;

create temp table proof as  -- of the form; fits is 1 for the old password, 2 for the new one
    select password as known, null as fits, null as made from account;
update proof set fits = case when password_fits(ifnull(:old, ''), known) then 1
                             when password_fits(ifnull(:password, ''), known) then 2 else 0 end;
update proof set made = password_hash(:password)
    where fits = 1 and length(:password) between 8 and 64 and :password = :repeat;

begin immediate;
select 'old', 'site.login.bad.wait' from login_wait where address = :address;
insert into login_failed select :address from proof where fits = 0;
commit;

begin immediate;
update proof set fits = 2 * password_fits(ifnull(:password, ''), password)
    from account where password is not known;  -- it is new
select 'old', 'site.login.bad.password' from proof where fits = 0
union all select 'password', 'site.password.bad.length'
    where length(ifnull(:password, '')) not between 8 and 64
union all select 'repeat', 'site.password.bad.repeat'
    where ifnull(:password, '') <> ifnull(:repeat, '');
update account set password = made from proof where fits = 1;
delete from login_failure where address = :address;
delete from session where exists (select 1 from proof where fits = 1);
insert into session (secret, token, origin) select :newsecret, :newtoken, :neworigin
    where not exists (select 1 from live_session where number = :sid);
update session set flash = 'site.password.saved' where number = :sid or secret = :newsecret;
commit;
