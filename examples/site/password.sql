-- password.sql - a new password: old, password, repeat. All sessions end, and one begins
-- for the browser that has changed it. Guesses at the old one are like those of a login, see
-- there. Who sends the form twice knows the new one, which is the old one by then.
select null, null where :lang is not null;  -- the page in another language, no try

select 'old', 'site.login.bad.wait' from login_wait where address = :address;

create temp table proof as select password as known, null as fits, null as made from account;
update proof set fits = case when password_fits(ifnull(:old, ''), known) then 1
                        else ifnull(password_fits(ifnull(:password, ''), known), 0) end;
update proof set made = password_hash(:password)
    where fits and length(:password) between 8 and 64 and :password = :repeat;

begin immediate;
select 'old', 'site.login.bad.wait' from login_wait where address = :address;
insert into login_failed select :address from proof where not fits;
commit;

begin immediate;
select 'old', 'site.login.bad.password' from account, proof
    where not fits or iif(password is known, 1, password_fits(ifnull(:password, ''), password)) = 0
union all select 'password', 'site.password.bad.length'
    where length(ifnull(:password, '')) not between 8 and 64
union all select 'repeat', 'site.password.bad.repeat'
    where ifnull(:password, '') <> ifnull(:repeat, '');
update account set password = (select made from proof);
delete from login_failure where address = :address;
delete from session;
insert into session (secret, token, origin, flash)
    values (:newsecret, :newtoken, :neworigin, 'site.password.saved');
commit;
