-- database-03.sql - figures that a device measures (see figures.sql), made up like the rest; and the
-- password reaches the device, too.
alter table account add column applied text;  -- the hash that the device has
drop trigger password_changed;
create trigger password_changed after update of password on account begin
    insert into event_add values ('info', 'system', 'newpassword', '', null);
end;

drop view status_now;
create view status_now as
    select status.*, max(0, now - started) / 60 as uptime_minutes,
           iif(started > now + 8, 0, max(0, started - now)) as starts_in,  -- see reboot.sql
           memory_total * (48 + now / 60 % 9) / 100 as memory_used,
           printf('0.%02d, 0.%02d, 0.%02d', 4 + now / 60 % 31, 9 + now / 300 % 17, 12) as load
    from status, clock;

create view interface_list as  -- MiB since the start
    select column1 as name, printf('%.1f', max(0, now - started) * column2) as received,
           printf('%.1f', max(0, now - started) * column3) as sent, column4 as errors
    from status, clock,
         (values ('lan', 0.031, 0.194, 0), ('wan', 0.224, 0.038, 3), ('wlan', 0.012, 0.041, 17));

pragma user_version = 3;
