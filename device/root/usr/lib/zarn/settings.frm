<?multiquerytext "select name, value from setting
    union all select 'password', ifnull(password, '') from account" `$1=$2
`?>
