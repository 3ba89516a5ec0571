-- reboot.sql - starts the device again; here it is away for a few seconds.
begin;
update status set started = unixepoch() + 8;
insert into event_add values ('info', 'system', 'reboot', '', null);
commit;
