-- newpassword.sql - the end of a script that has begun a session for a password and tried to
-- store that. Another form may have been faster. When that one's password is the same, as at
-- a second click, the session holds for it; else this form has come too late.
update sessions.session set password = account.password from account
    where secret = :newsecret and session.password <> account.password
      and password_fits(ifnull(:password, ''), account.password);
select 'password', 'site.login.bad.password' from sessions.session, account
    where secret = :newsecret and session.password <> account.password;
