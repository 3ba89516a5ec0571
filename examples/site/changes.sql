-- changes.sql - what the device does not have yet.
select name, value from setting where value is not applied
union all select 'password', ifnull(password, '') from account where password is not applied;  -- its hash
