-- applied.sql - the device has this now.
update setting set applied = :value where name = :name;
update account set applied = nullif(:value, '') where :name = 'password';
