-- addresses.sql - adds, changes or deletes a row of the fixed addresses. A second click finds done
-- what it wants.
select 'again', null where :lang is not null;
delete from fixed where id = cast(:delete as integer);
select 'done', 'site.fixed.deleted' where :delete is not null;

create temp table wish as
    select lower(trim(ifnull(:mac, ''))) as mac, trim(ifnull(:host, '')) as host,
           cast(ifnull(:id, '') as integer) as id;
create temp view other as select fixed.* from fixed, wish where fixed.id <> wish.id;
select 'mac' as field, 'site.fixed.bad.mac' as text from wish
    where mac not glob replace('xx:xx:xx:xx:xx:xx', 'x', '[0-9a-f]')
union all select 'mac', 'site.fixed.bad.twice' from wish join other using (mac)
    where wish.id <> 0 or other.host <> cast(wish.host as integer)
union all select 'host', 'site.settings.bad.number' from wish
    where host = '' or host glob '*[^0-9]*' or cast(host as integer) not between 1 and 254
union all select 'host', 'site.fixed.bad.taken' from wish join other on other.host = cast(wish.host as integer)
    where wish.id <> 0 or other.mac <> wish.mac
union all select 'host', 'site.fixed.bad.range' from wish, setting as first, setting as last
    where first.name = 'first' and last.name = 'last'
      and cast(wish.host as integer) between cast(first.value as integer) and cast(last.value as integer)
union all select 'version', 'site.fixed.bad.version' from wish left join fixed using (id)
    where wish.id <> 0 and ifnull(fixed.mac || ' ' || fixed.host, '')
          not in (ifnull(:was, ''), wish.mac || ' ' || cast(wish.host as integer));
update fixed set (mac, host) = (select mac, cast(host as integer) from wish)
    where id = (select id from wish);
insert into fixed (mac, host) select mac, cast(host as integer) from wish
    where id = 0 and not exists (select 1 from fixed where fixed.mac = wish.mac);
select 'done', 'site.fixed.saved';
