-- backup.sql - has two forms. One keeps the settings as a file, and asks for the password, since
-- the file may have the secrets. The other one takes a file that was kept, all of it or nothing.
-- What an older file has not is as from the factory, but secrets stay as they are.
select 'again', null where :lang is not null;

create temp table proof as
    select 'password' as field, password as known, null as fits, null as turn from account
    where :keep is not null;
.read turn.sql
update proof set fits = password_fits(ifnull(:password, ''), known);
.read counted.sql
delete from sessions.login_failure where address = :address and exists (select 1 from proof);
insert into sessions.waiting_event (level, source, code, detail)
    select 'info', 'system', 'backup', ifnull(:address, '') from proof;
select 'show', 'settings.json.frm' from proof;

.read candidate.sql
create temp table kept as select ltrim(:file, char(65279)) as file;  -- without a byte order mark
select 'file', 'site.backup.bad.file' from kept, status
    where ifnull(iif(json_valid(file), json_extract(file, '$.kind'), ''), '') <> model;
insert into candidate
    select name, case when json_each.key is null then iif(kind = 'secret', setting.value, factory)
                      when type in ('text', 'integer') then json_each.value end
    from setting left join (select json_each.* from kept, json_each(file)) as json_each on key = name;
create temp table listed as  -- the fixed addresses, where the file has them
    select iif(entry.type = 'array', json_extract(entry.value, '$[0]'), null) as mac,
           iif(entry.type = 'array', json_extract(entry.value, '$[1]'), null) as host
    from kept, json_each(file, '$.fixed') as entry;
select 'file', text from candidate_problem
    where text <> 'site.settings.bad.fixed' or not exists (select 1 from listed) limit 1;
select 'file', 'site.backup.bad.file'
    from (select count(*) as rows, count(distinct mac) as macs, count(distinct host) as hosts,
                 min(mac glob replace('xx:xx:xx:xx:xx:xx', 'x', '[0-9a-f]')
                     and typeof(host) = 'integer' and host between 1 and 254) as are_sound
          from listed)
    where rows > macs or rows > hosts or not are_sound;
select 'file', 'site.fixed.bad.range' from listed, candidate as first, candidate as last
    where first.name = 'first' and last.name = 'last'
      and host between cast(first.value as integer) and cast(last.value as integer) limit 1;
begin;
delete from fixed where exists (select 1 from kept where json_type(file, '$.fixed') = 'array');
insert into fixed (mac, host) select mac, host from listed;
update revision set number = number + 1 where exists (select 1 from candidate_change);
insert into event_add values ('info', 'system', 'restored', ifnull(:address, ''), null);
commit;
select 'done', 'site.backup.restored';
