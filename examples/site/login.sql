-- login.sql - the login page's form: password, and at the first visit repeat.
begin immediate;
insert into login_count values (:address, :newtoken);
select 'password', 'site.login.bad.wait'
    where not exists (select 1 from login_try where attempt = :newtoken);
commit;  -- the try counts, whatever becomes of it

-- While there is no password yet, fits stays null.
update login_try set fits =
    (select ifnull(password_fits(:password, password), 0) from account where password is not null)
    where attempt = :newtoken;
select 'password', 'site.login.bad.password' from login_try where attempt = :newtoken and fits = 0;

begin immediate;
select 'password', 'site.password.bad.length' from account
    where password is null and length(ifnull(:password, '')) not between 8 and 64
union all select 'repeat', 'site.password.bad.repeat' from account
    where password is null and ifnull(:password, '') <> ifnull(:repeat, '')
union all select 'password', 'site.login.bad.password' from account, login_try
    where password is not null and attempt = :newtoken and fits is null;  -- another was first
update account set password = password_hash(:password) where password is null;
select 'password', 'site.bad.store' from account where password is null;
delete from login_try where address = :address;
delete from session where number not in (select number from live_session) or number = :sid;
insert into session (secret, token, origin) values (:newsecret, :newtoken, :neworigin);
commit;
