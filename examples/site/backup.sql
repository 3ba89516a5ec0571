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
select 'file', text from candidate_problem limit 1;
begin;
update revision set number = number + 1 where exists (select 1 from candidate_change);
insert into event_add values ('info', 'system', 'restored', ifnull(:address, ''), null);
commit;
select 'done', 'site.backup.restored';
