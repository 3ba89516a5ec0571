-- settings.sql - takes the settings page's form, or says what is wrong with it. An empty
-- secret leaves the one that there is; blanks around an address are nobody's wish. Where
-- the settings are so already, as at a second click, nobody has been in between.
.read candidate.sql
insert into candidate
    select name, case when kind = 'box' then form.value is not null
                      when kind = 'secret' and ifnull(form.value, '') = '' then setting.value
                      when kind in ('secret', 'text', 'choice') then form.value
                      else trim(form.value) end
    from setting left join form using (name);
select field, text from candidate_problem
union all select 'version', 'site.settings.bad.version' from revision
    where number <> cast(ifnull(:version, 0) as integer) and exists (select 1 from candidate_change)
union all select 'again', null where :lang is not null or :reveal is not null;  -- not saved yet
create temp table renamed as select name from candidate_change where name = 'hostname';
begin;  -- behind its end nothing is read that could fail: what is stored is said to be
update revision set number = number + 1
    where number = cast(:version as integer) and exists (select 1 from candidate_change);
select 'version', 'site.settings.bad.version' from candidate_change;
commit;
select 'done', iif(exists (select 1 from renamed), 'site.settings.renamed', 'site.settings.saved');
