-- changes.sql - what the device does not have yet.
select name, value from setting where value is not applied order by rowid;
