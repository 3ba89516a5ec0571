<?-- What backup.htm lets one keep. ?><?querytext "select json_insert(json_group_object(name, iif(kind in ('number', 'box'), cast(value as integer), value)),
    '$$.kind', model, '$$.firmware', firmware, '$$.serial', serial,
    '$$.fixed', json((select json_group_array(json_array(mac, host)) from fixed)),
    '$$.date', strftime('%Y-%m-%d %H:%M', 'now', 'localtime'))
    from setting, status where kind <> 'secret' or :secrets is not null"?>
