<?-- The fields of the settings, by part: part[NAME] is the text of a part, label[NAME] that of a field
     and help[NAME] more of it, if any. A form that comes back shows what was typed, sent[NAME], instead of what is
     stored. The web program says so in "typed", and no request can: a link from elsewhere must not
     fill the form. An unticked box sends nothing, and a stored secret is in the page only when its
     owner asks for it. ?><?multiquery "select name, kind, iif(least is null, '', '(' || least || ' - ' || most || ')'),
    iif(kind = 'secret' and not (ifnull(:typed, '') = '1' and :reveal is not null), '', value), part,
    iif(kind in ('box', 'secret') or least = 0, '', ' required')
    from setting order by instr('general addresses wireless', part), rowid"
`<?if neq $5 $var:field[part] `<?if gt $0 0 `</fieldset>
`?><fieldset>
<legend><?print $var:part[$5]?></legend>
<?setvariable var:field[part] $5?>`?><?setvariable var:field[value] $4?><?if eq $var:typed 1 `<?if or <?neq $2 secret?> <?neq $var:sent[$1] ''?> `<?setvariable var:field[value] $var:sent[$1]?>`?>`?><?setvariable var:field[about] "$var:help[$1]$var:error[$1]"?><p><?if neq $2 box `<label for="<?echo $1?>"><?print $var:label[$1]?></label>
`?><?if eq $2 choice `<select` `<input autocomplete="<?if eq $2 secret new-password off?>"`?> id="$1" name="$1"<?if eq $2 box ` type="checkbox" value="1"<?if eq $var:field[value] 1 ` checked`?>` `<?if neq $2 choice ` value="<?echo $var:field[value]?>"`?>`?><?if eq $2 number ` inputmode="numeric"`?><?if eq $2 text ` dir="auto"`?><?if eq $2 host ` autocapitalize="none"`?><?if eq $2 secret `<?if eq $4 '' ` type="password"`?>`?>$6<?if neq $var:field[about] '' ` aria-describedby="<?echo $1?>-about"`?><?if neq $var:error[$1] '' ` aria-invalid="true"`?><?if eq $var:wrong $1 ` autofocus`?>><?if eq $2 choice `
<?multiquery "select setting, code, label from choice_list order by position"
`<?if eq $21 $1 `<option value="<?echo $22?>"<?if eq $22 $var:field[value] ` selected`?>><?echo $23?></option>
`?>`?></select>`?><?if eq $2 secret `
<button class="minor" name="reveal" value="1" formnovalidate>{?site.settings.reveal?}</button>`?><?if eq $2 box `
<label for="<?echo $1?>"><?print $var:label[$1]?></label>`?></p>
<?if neq $var:field[about] '' `<p class="about" id="<?echo $1?>-about"><?print $var:help[$1]?><?if neq $var:error[$1] '' ` <strong class="problem"><?echo `$var:error[$1] $3`?></strong>`?></p>
`?>`?></fieldset>
