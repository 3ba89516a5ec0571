-- backup.sql - takes the settings of a file that settings.json was, all or none.
.read candidate.sql
select 'file', 'site.backup.bad.file'
    where ifnull(iif(json_valid(:file), json_extract(:file, '$.kind'), ''), '') <> 'Fjord R4';
insert into candidate
    select name, iif(type in ('text', 'integer'), json_each.value, null)
    from setting left join json_each(:file) on key = name;
select 'file', text from candidate_problem limit 1;
update revision set number = number + 1 where exists (select 1 from candidate_change);
select 'done', 'site.backup.restored';
