-- password.sql - a new password: old, password, repeat. All sessions end, and one begins
-- for the browser that has changed it. Guesses at the old one count like those of a login.
begin immediate;
insert into login_count values (:address, :newtoken);
select 'old', 'site.login.bad.wait'
    where not exists (select 1 from login_try where attempt = :newtoken);
commit;

update login_try set fits = (select ifnull(password_fits(:old, password), 0) from account)
    where attempt = :newtoken;
delete from login_try where attempt = :newtoken and fits;

begin immediate;
select 'old', 'site.login.bad.password' from login_try where attempt = :newtoken and fits = 0
union all select 'password', 'site.password.bad.length'
    where length(ifnull(:password, '')) not between 8 and 64
union all select 'repeat', 'site.password.bad.repeat'
    where ifnull(:password, '') <> ifnull(:repeat, '');
update account set password = ifnull(password_hash(:password), password);
delete from session;
insert into session (secret, token, origin, flash)
    values (:newsecret, :newtoken, :neworigin, 'site.password.saved');
commit;
