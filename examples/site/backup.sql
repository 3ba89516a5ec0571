-- backup.sql - takes the settings of a file that settings.json was, all or none.
.read candidate.sql
select 'file', 'site.backup.bad.file'
    where ifnull(iif(json_valid(:file), json_extract(:file, '$.kind'), ''), '') <> 'Fjord R4';
insert into candidate
    select json_extract(:file, '$.hostname'), json_extract(:file, '$.nameserver'),
           json_extract(:file, '$.dhcp'), cast(json_extract(:file, '$.first') as text),
           cast(json_extract(:file, '$.last') as text),
           cast(json_extract(:file, '$.network') as text), json_extract(:file, '$.ssid'),
           cast(json_extract(:file, '$.channel') as text), json_extract(:file, '$.security'),
           json_extract(:file, '$.passphrase'), json_extract(:file, '$.hidden'),
           json_extract(:file, '$.guests'), null, 0;
select 'file', text from candidate_problem limit 1;
update candidate set taken = 1;
select 'done', 'site.backup.restored';
