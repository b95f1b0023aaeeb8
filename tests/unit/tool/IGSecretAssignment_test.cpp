#include <gmock/gmock.h>

#include "../../support/masked.h"

namespace {

TEST(IGSecretAssignment, TheValueBehindASignIsHidden) {
    expectHidden({
        "UPDATE users SET passwd = MD5('{}') WHERE id=1",
        "UPDATE mysql.user SET Password=PASSWORD('{}')",
        "Lizenzschlüssel: {}",
        "connect.sid={}",
        "# x (pass: {}) y",
        "x _auth=bearer {} y",
        "x ADMINPW={} y",
        "x DBPWD={} y",
        "export ADMINPW={}",
        "x DBPASS={} y",
        "x MYSQL_PWD={} y",
        "x PGPASSWORD={} psql -h h",
        "x SMTPPASSWORD={} y",
        "x APPSECRET={} y",
        "Nov 22 10:00:00 h app[1]: pw={} x",
        "Nov 22 10:00:00 h app[1]: bind dn=cn=x pw={}",
        "Nov 22 10:00:00 h app[1]: AUTH LOGIN user=bob pass={}",
        "GET /cb?code=1&access_token={}&x=1 HTTP/1.1",
        "https://h/x?user=bob&password={}&x=1",
        "user=bob&password={}&x=1",
        "bob 12 0.0 worker --password={}",
        "1 java -Djavax.net.ssl.keyStorePassword={} -Dspring.datasource.password={} -jar a.jar",
        "PGPASSWORD={} -h db",
        "env A=1 TOKEN={} prog",
        "openssl rsa -in a -passin pass:{} -passout pass:{} -out b",
        R"(curl -H 'X-Api-Key: {}' -H "Authorization: {}" -u a:{} https://h/)",
        "wget --password={} https://h/",
        "ansible h -m x -e ansible_become_pass={} -v",
        "kubectl get pods --token={} -A",
        "x BORG_PASSPHRASE={} borg create",
        R"(pg_dump "host=h password={} dbname=d")",
        "jdbc:mysql://h/db?user=u&password={}",
        "Server=h;User Id=sa;Password={};Encrypt=true",
        R"("Server=h;User Id=sa;Password={};Encrypt=true;x")",
        "TOKEN={} /usr/bin/env",
        "5 4 * * * echo PASSWORD={}",
        "PrivateKey = {}",
        "  preshared key: {}",
        "802-1x.password:                        {}",
        "wifi-sec.psk: {}",
        "SetCredential={}",
        R"(<user username="a" password="{}" roles="r"/>)",
        "app.password={} app.authtoken={} root=/dev/sda1 quiet",
        "Kernel command line: app.password={} app.authtoken={} root=/dev/sda1 quiet",
        "BOOT_IMAGE=/vmlinuz app.password={} app.authtoken={} root=/dev/sda1 quiet",
        "app.password={} root=/dev/sda1 quiet",
        "//n/s /mnt cifs noauto,username=bk,password={},vers=3.0 0 0",
        "x LICENSE_KEY={} y",
        R"(  "license_key": "{}",)",
        R"(x "password":"{}","user":"bob")",
        "DB_CREDS={}",
        "key: {}",
        "  key = {}",
        "x my_api_key: {} y",
        "totem.key (str) = {}",
        "PGPASSWORD={} psql -h db",
        "SetCredential=name:{}",
        "SetCredentialEncrypted=name: {}",
        R"({"msg":"{\\\"password\\\":\\\"{}\\\",\\\"u\\\":1}"})",
        R"(["password"]=> string(10) "{}")",
        "'password': u'{}', 'a': 1",
        "{'password': b'{}', 'a': 1}",
        "Endpoint=sb://x/;SharedAccessKeyName=Root;SharedAccessKey={}",
        "https://h/x?code={}&state=1",
        "https://h/x?auth={}&state=1",
        "RESTIC_PASSWORD={} restic snapshots",
        "PASSPHRASE={} duplicity full / x",
        "FTP_PASSWORD={} duplicity full / x",
        "RCLONE_CONFIG_X_PASS={} rclone ls x:",
        "//h/s /m cifs credentials=/etc/c,password2={} 0 0",
        "Kennwort: {}",
        "Kennw.: {}",
        "mot de passe: {}",
        "Mot de passe : {}",
        "mot_de_passe={}",
        "motdepasse={}",
        "mdp={}",
        "mdp: {}",
        "contraseña: {}",
        "contrasena={}",
        "clave: {}",
        "clave={}",
        "senha: {}",
        "senha={}",
        "parola: {}",
        "wachtwoord: {}",
        "wachtwoord={}",
        "haslo: {}",
        "hasło: {}",
        "пароль: {}",
        "密码: {}",
        "パスワード: {}",
        "heslo: {}",
        "lösenord: {}",
        "adgangskode: {}",
        "salasana: {}",
        "jelszó: {}",
        "şifre: {}",
        "passwrd={}",
        "pasword: {}",
        "pasword={}",
        "psswd={}",
        "paswd={}",
        "passwprd={}",
        "pssword={}",
        "passowrd={}",
        "pswd={}",
        "passw={}",
        "pwrd={}",
        "dbPwdProd={}",
        "userPwHash={}",
        "encKey={}",
        "aesKey={}",
        "hmacKey={}",
        "JWT={}",
        "jwt: {}",
        "bearer={}",
        "Bearer: {}",
        "AUTH_SALT={}",
        "totp_seed={}",
        "recovery code: {}",
        "recovery_code={}",
        "backup code: {}",
        "passkey: {}",
        "pass phrase: {}",
        "pass word: {}",
        "CREATE LOGIN l WITH PASSWORD = N'{}'",
        "CREATE LOGIN l WITH PASSWORD=N'{}', DEFAULT_DATABASE=[x]",
        "SSHPASS={} sshpass -e ssh h",
        "VAULT_TOKEN={} vault status",
        "sonar.login={}",
        "-Dsonar.login={}",
        R"("password": ["{}"])",
        R"("passwords": ["{}", "{}"])",
        "puk={}",
        "PGPASSWORD={} psql",
        R"(password=["{}", "{}"], x)",
    });
}

TEST(IGSecretAssignment, AVariableIsKeptUnlessItsDefaultLooksLikeASecret) {
    expectMasked({
        {lines({"x DB_PASS=${A:-Ab1cd2} y", "x DB_PASS=${A:-b} y", "x DB_PASS=${A} y"}),
         lines({"x DB_PASS=" + MASK + " y", "x DB_PASS=${A:-b} y", "x DB_PASS=${A} y"})},
    });
}

TEST(IGSecretAssignment, ASchemeOfALoginIsKeptInFrontOfItsCredentials) {
    expectMasked({
        {lines({"npm _auth=basic bob:abc", "npm _auth=basic Ab1cd2 x"}),
         lines({"npm _auth=basic " + MASK, "npm _auth=basic " + MASK + " x"})},
    });
}

TEST(IGSecretAssignment, BothValuesAroundASlashAreHidden) {
    expectMasked({
        {lines({"x credentials: admin / a1B2c3"}),
         lines({"x credentials: " + MASK + " / " + MASK})},
    });
}

TEST(IGSecretAssignment, AKeyIsASecretOutsideOfRecordsOfTheAuditSystem) {
    expectMasked({
        {lines({"h app: KEY=abc x"}), lines({"h app: KEY=" + MASK + " x"})},
        {lines({R"(audit(1.1:2): a1="key=abc" x)"}),
         lines({R"(audit(1.1:2): a1="key=)" + MASK + R"(" x)"})},
    });
}

TEST(IGSecretAssignment, AValueAtTheStartOfALineEndsWhereACommandLineFollows) {
    expectMasked({
        {lines({"PASSWORD=abc; export PASSWORD"}),
         lines({"PASSWORD=" + MASK + "; export PASSWORD"})},
        {lines({"password=abc def ghi"}), lines({"password=" + MASK})},
        {lines({"password=abc def --x"}), lines({"password=" + MASK + " --x"})},
    });
}

TEST(IGSecretAssignment, ListsNamesWithATypeAndNamesWithAnOwnerHaveValues) {
    expectMasked({
        {lines({"totem.key (str) = abc", "123456789:AAabcdefghijklmnopqrstuvwxyz1234567"}),
         lines({"totem.key (str) = " + MASK, "123456789:" + MASK})},
        {lines({"password=['abc', 'def'], user=x", "password = $val", "Passwort fuer me: abc"}),
         lines({"password=['" + MASK + "', '" + MASK + "'], user=x", "password = $val",
                "Passwort " + MASK})},
    });
}

}  // namespace
