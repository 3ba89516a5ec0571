-- names.sql - has a row when :host is a name of the device.
select 1 from setting where name = 'hostname' and :host in (value, value || '.lan', value || '.local');
