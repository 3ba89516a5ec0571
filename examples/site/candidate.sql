-- candidate.sql - what a form or a file wants the settings to be. A script puts it into
-- candidate, a row for each setting, looks at candidate_problem, and takes it all by adding one to
-- the revision. What candidate_change has then has not been taken, because there was another
-- revision. All is temporary.
create temp table candidate (name text primary key, value text);

create temp view candidate_problem as  -- in the order of the table's rows
    select candidate.name as field, 'site.settings.bad.' || kind as text
        from setting left join candidate using (name)
        where not ifnull(case kind
            when 'host' then length(candidate.value) between least and most
                and candidate.value not glob '*[^a-z0-9-]*'
                and candidate.value not glob '-*' and candidate.value not glob '*-'
            when 'address' then candidate.value not glob '*[^0-9.]*'
                and iif(json_valid('[' || replace(candidate.value, '.', ',') || ']'),
                        (select count(*) = 4 and min(type = 'integer' and value <= 255)
                         from json_each('[' || replace(candidate.value, '.', ',') || ']')), 0)
            when 'number' then candidate.value <> '' and candidate.value not glob '*[^0-9]*'
                and cast(candidate.value as integer) between least and most
            when 'choice' then candidate.value in (select code from choice_list where setting = name)
            when 'text' then length(cast(candidate.value as blob)) between least and most
                and candidate.value not glob '*[' || char(1) || '-' || char(31) || char(127) || ']*'
            when 'secret' then length(candidate.value) between least and most
                and candidate.value not glob '*[^ -~]*'
            when 'box' then candidate.value in ('0', '1') end, 0)
    union all select 'last', 'site.settings.bad.range' from candidate as first, candidate as last
        where first.name = 'first' and last.name = 'last'
          and cast(first.value as integer) > cast(last.value as integer)
          and cast(last.value as integer) > 0
    union all select 'first', 'site.settings.bad.fixed' from candidate as first, candidate as last, fixed
        where first.name = 'first' and last.name = 'last'
          and cast(first.value as integer) > 0 and host between cast(first.value as integer) and cast(last.value as integer);

create temp view candidate_change as  -- the settings that are not so already
    select name from candidate join setting using (name) where candidate.value <> setting.value;

create temp trigger candidate_taken after update on revision begin
    update setting set stored = (select value from candidate where candidate.name = setting.name)
        where name in (select name from candidate_change);
end;
