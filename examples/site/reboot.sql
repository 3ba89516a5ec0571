-- reboot.sql - starts the device again; here it is away for a few seconds. Or takes it back to what
-- it was when it left the factory, which asks for the password and forgets it.
select 'again', null where :lang is not null;
create temp table proof as
    select 'password' as field, password as known, null as fits, null as turn from account
    where :factory is not null;
.read turn.sql
update proof set fits = password_fits(ifnull(:password, ''), known);
.read counted.sql

begin;
update setting set stored = null where :factory is not null;
update revision set number = number + 1 where :factory is not null;
delete from fixed where :factory is not null;
update account set password = null where :factory is not null;
insert into event_add select 'warning', 'system', 'factory', ifnull(:address, ''), null from proof;
update status set started = unixepoch() + 8;
insert into event_add values ('info', 'system', 'reboot', '', null);
commit;
