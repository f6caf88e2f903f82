<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ru_RU">
<context>
    <name>BoardBackup</name>
    <message>
        <source>Cannot create the folder %1</source>
        <translation>Не удаётся создать папку %1</translation>
    </message>
    <message>
        <source>Skipping %1 in %2: the name is not safe on the PC</source>
        <translation>Пропуск %1 в %2: такое имя недопустимо на ПК</translation>
    </message>
    <message>
        <source>Skipping folder %1 in %2: the name is not safe on the PC</source>
        <translation>Пропуск папки %1 в %2: такое имя недопустимо на ПК</translation>
    </message>
    <message>
        <source>Retrying %1</source>
        <translation>Повторная попытка: %1</translation>
    </message>
    <message>
        <source>No such board folder: %1</source>
        <translation>На плате нет папки %1</translation>
    </message>
    <message>
        <source>Backup aborted: the board folder could not be listed</source>
        <translation>Резервное копирование прервано: не удалось получить содержимое папки на плате</translation>
    </message>
    <message>
        <source>Backup aborted: the MC is disconnected</source>
        <translation>Резервное копирование прервано: плата отключена</translation>
    </message>
    <message>
        <source>Not saved: %1</source>
        <translation>Не сохранено: %1</translation>
    </message>
    <message>
        <source>Backed up %1 of %2 files (%3 bytes) from %4 to %5</source>
        <translation>Сохранено файлов: %1 из %2 (%3 байт) из %4 в %5</translation>
    </message>
    <message>
        <source>The board did not list %1</source>
        <translation>Плата не выдала список %1</translation>
    </message>
</context>
<context>
    <name>BoardErrors</name>
    <message>
        <source>the operation is not permitted</source>
        <translation>операция не разрешена</translation>
    </message>
    <message>
        <source>no such file or folder</source>
        <translation>нет такого файла или папки</translation>
    </message>
    <message>
        <source>the flash could not be read or written</source>
        <translation>не удалось прочитать или записать флеш-память</translation>
    </message>
    <message>
        <source>the file is not open</source>
        <translation>файл не открыт</translation>
    </message>
    <message>
        <source>the board ran out of memory</source>
        <translation>на плате закончилась память</translation>
    </message>
    <message>
        <source>permission denied</source>
        <translation>доступ запрещён</translation>
    </message>
    <message>
        <source>it already exists</source>
        <translation>уже существует</translation>
    </message>
    <message>
        <source>no file system is mounted there</source>
        <translation>там не смонтирована файловая система</translation>
    </message>
    <message>
        <source>a part of the path is a file, not a folder</source>
        <translation>часть пути — файл, а не папка</translation>
    </message>
    <message>
        <source>it is a folder</source>
        <translation>это папка</translation>
    </message>
    <message>
        <source>invalid argument</source>
        <translation>недопустимый аргумент</translation>
    </message>
    <message>
        <source>not enough room on the board</source>
        <translation>на плате недостаточно места</translation>
    </message>
    <message>
        <source>the file system is read-only</source>
        <translation>файловая система только для чтения</translation>
    </message>
    <message>
        <source>the name is too long</source>
        <translation>слишком длинное имя</translation>
    </message>
    <message>
        <source>the folder is not empty</source>
        <translation>папка не пуста</translation>
    </message>
    <message>
        <source>error number %1</source>
        <translation>ошибка номер %1</translation>
    </message>
    <message>
        <source>the board did not receive the size of the transfer: bytes were lost on the line</source>
        <translation>плата не получила размер передачи: байты потерялись в линии</translation>
    </message>
    <message>
        <source>the board stopped receiving the data: bytes were lost on the line</source>
        <translation>плата перестала получать данные: байты потерялись в линии</translation>
    </message>
    <message>
        <source>the board did not receive the closing checksum: bytes were lost on the line</source>
        <translation>плата не получила итоговую контрольную сумму: байты потерялись в линии</translation>
    </message>
    <message>
        <source>the data arrived damaged: bytes were lost or changed on the line</source>
        <translation>данные пришли повреждёнными: байты потерялись или изменились в линии</translation>
    </message>
    <message>
        <source>the copy written on the board differs from what was sent</source>
        <translation>копия, записанная на плату, отличается от отправленной</translation>
    </message>
    <message>
        <source>the transfer was stopped</source>
        <translation>передача остановлена</translation>
    </message>
    <message>
        <source>the board&apos;s script ended without a verdict</source>
        <translation>сценарий на плате завершился без результата</translation>
    </message>
</context>
<context>
    <name>BoardFiles</name>
    <message>
        <source>Cancelled</source>
        <translation>Отменено</translation>
    </message>
    <message>
        <source>Cannot rename %1: %2</source>
        <translation>Не удаётся переименовать %1: %2</translation>
    </message>
    <message>
        <source>%1 renamed to %2</source>
        <translation>%1 переименован в %2</translation>
    </message>
    <message>
        <source>Cannot open %1: %2</source>
        <translation>Не удаётся открыть %1: %2</translation>
    </message>
    <message>
        <source>Cannot upload script %1</source>
        <translation>Не удаётся загрузить скрипт %1</translation>
    </message>
    <message>
        <source>Script %1 executed</source>
        <translation>Скрипт %1 выполнен</translation>
    </message>
    <message>
        <source>No reply at %1 step</source>
        <translation>Нет ответа на шаге %1</translation>
    </message>
    <message>
        <source>Cannot upload - forbidden character %1 in %2</source>
        <translation>Загрузка невозможна: недопустимый символ %1 в %2</translation>
    </message>
    <message>
        <source>Start uploading &quot;%1&quot; -&gt; &quot;%2&quot;</source>
        <translation>Начало загрузки «%1» -&gt; «%2»</translation>
    </message>
    <message>
        <source>Cannot read from %1: %2</source>
        <translation>Не удаётся прочитать %1: %2</translation>
    </message>
    <message>
        <source>Invalid reply %1. Aborted</source>
        <translation>Неверный ответ %1. Прервано</translation>
    </message>
    <message>
        <source>Error while starting the transmission. Aborted</source>
        <translation>Ошибка при начале передачи. Прервано</translation>
    </message>
    <message>
        <source>No reply for the transmitted data. Aborted</source>
        <translation>Нет ответа на переданные данные. Прервано</translation>
    </message>
    <message>
        <source>Transmission error. Aborted</source>
        <translation>Ошибка передачи. Прервано</translation>
    </message>
    <message>
        <source>No reply. Aborted</source>
        <translation>Нет ответа. Прервано</translation>
    </message>
    <message>
        <source>Finalization error (during transmission phase). Aborted</source>
        <translation>Ошибка завершения (при передаче). Прервано</translation>
    </message>
    <message>
        <source>Finalization error (during reception phase). Aborted</source>
        <translation>Ошибка завершения (при приёме). Прервано</translation>
    </message>
    <message>
        <source>Finished uploading to %1</source>
        <translation>Загрузка в %1 завершена</translation>
    </message>
    <message>
        <source>Cannot write to %1: %2</source>
        <translation>Не удаётся записать в %1: %2</translation>
    </message>
    <message>
        <source>Downloading %1</source>
        <translation>Скачивание %1</translation>
    </message>
    <message>
        <source>Communication timed out</source>
        <translation>Истекло время ожидания связи</translation>
    </message>
    <message>
        <source>File downloaded with errors!! (checksum mismatch %1 vs %2</source>
        <translation>Файл скачан с ошибками!! (контрольные суммы не совпадают: %1 и %2</translation>
    </message>
    <message>
        <source>Transmission error: %1</source>
        <translation>Ошибка передачи: %1</translation>
    </message>
    <message>
        <source>Communication error - unexpected data</source>
        <translation>Ошибка связи: неожиданные данные</translation>
    </message>
    <message>
        <source>Download from %1 completed</source>
        <translation>Скачивание %1 завершено</translation>
    </message>
    <message>
        <source>%1 removed</source>
        <translation>%1 удалён</translation>
    </message>
    <message>
        <source>Removal error: %1. Aborted</source>
        <translation>Ошибка удаления: %1. Прервано</translation>
    </message>
    <message>
        <source>Directory creator %1 is missing</source>
        <translation>Скрипт создания папок %1 не найден</translation>
    </message>
    <message>
        <source>Creating dir %1</source>
        <translation>Создание папки %1</translation>
    </message>
    <message>
        <source>Cannot list files - invalid reply</source>
        <translation>Не удаётся получить список файлов: неверный ответ</translation>
    </message>
    <message>
        <source>Cannot change directory to %1</source>
        <translation>Не удаётся перейти в папку %1</translation>
    </message>
    <message>
        <source>System information request failed</source>
        <translation>Не удалось получить сведения о системе</translation>
    </message>
    <message>
        <source>Connected to micropython board %1 (mod %2), release %3. Core %4 version %5</source>
        <translation>Подключена плата MicroPython %1 (модель %2), выпуск %3. Ядро %4, версия %5</translation>
    </message>
    <message>
        <source>The board has no memory left to inflate %1: sending it uncompressed, and nothing more compressed until it is connected again</source>
        <translation>У платы не хватает памяти, чтобы распаковать %1: файл отправляется без сжатия, и до нового подключения сжатие не используется</translation>
    </message>
    <message>
        <source>Not enough room on the board</source>
        <translation>На плате недостаточно места</translation>
    </message>
    <message>
        <source>No room on the board for a second copy of %1: it was written in place</source>
        <translation>На плате нет места для второй копии %1: файл записан поверх</translation>
    </message>
    <message>
        <source>No answer from the board in %1 s: interrupted</source>
        <translation>Плата не ответила за %1 с: вызов прерван</translation>
    </message>
    <message>
        <source>The board no longer knows Pelkam&apos;s scripts (was it reset?): pasting them again</source>
        <translation>Плата больше не знает скрипты Pelkam (её сбросили?): они вставляются снова</translation>
    </message>
    <message>
        <source>%1 restored from its verified copy</source>
        <translation>%1 восстановлен из проверенной копии</translation>
    </message>
    <message>
        <source>The board restarted during a call: starting it again</source>
        <translation>Плата перезапустилась во время вызова: начинаем заново</translation>
    </message>
    <message>
        <source>The board restarted during the upload of %1: sending it again</source>
        <translation>Плата перезапустилась во время загрузки %1: отправляем файл снова</translation>
    </message>
    <message>
        <source>The board cannot write %1: %2</source>
        <translation>Плата не может записать %1: %2</translation>
    </message>
    <message>
        <source>unknown</source>
        <translation>неизвестно</translation>
    </message>
    <message>
        <source>WebREPL&apos;s file protocol failed (%1): files go through the REPL until the next connection</source>
        <translation>Файловый протокол WebREPL не сработал (%1): до следующего подключения файлы идут через REPL</translation>
    </message>
    <message>
        <source>This board cannot take raw bytes (no micropython.kbd_intr or sys.stdin.buffer): files travel in base64</source>
        <translation>Эта плата не принимает сырые байты (нет micropython.kbd_intr или sys.stdin.buffer): файлы передаются в base64</translation>
    </message>
    <message>
        <source>Cannot upload %1: %2</source>
        <translation>Не удалось загрузить %1: %2</translation>
    </message>
    <message>
        <source>Cannot upload %1: the board answered &quot;%2&quot;</source>
        <translation>Не удалось загрузить %1: плата ответила «%2»</translation>
    </message>
</context>
<context>
    <name>BoardLink</name>
    <message>
        <source>Execution aborted</source>
        <translation>Выполнение прервано</translation>
    </message>
    <message>
        <source>MC initialization...</source>
        <translation>Инициализация платы...</translation>
    </message>
    <message>
        <source>REPL init failed</source>
        <translation>Не удалось запустить REPL</translation>
    </message>
    <message>
        <source>REPL initialized</source>
        <translation>REPL запущен</translation>
    </message>
    <message>
        <source>Stopped</source>
        <translation>Остановлено</translation>
    </message>
    <message>
        <source>Abort failed</source>
        <translation>Не удалось прервать</translation>
    </message>
    <message>
        <source>Launch failed</source>
        <translation>Не удалось запустить</translation>
    </message>
    <message>
        <source>Launching...</source>
        <translation>Запуск...</translation>
    </message>
    <message>
        <source>Restart failed</source>
        <translation>Не удалось перезапустить</translation>
    </message>
    <message>
        <source>Resetting...</source>
        <translation>Сброс...</translation>
    </message>
    <message>
        <source>DFU failed or not supported</source>
        <translation>Режим DFU не удался или не поддерживается</translation>
    </message>
    <message>
        <source>Connected to %1</source>
        <translation>Подключено к %1</translation>
    </message>
    <message>
        <source>Cannot connect to %1: %2</source>
        <translation>Не удаётся подключиться к %1: %2</translation>
    </message>
    <message>
        <source>Connection deferred...</source>
        <translation>Подключение отложено...</translation>
    </message>
    <message>
        <source>Connection failed - MC is not responding</source>
        <translation>Подключение не удалось: плата не отвечает</translation>
    </message>
    <message>
        <source>Opened connection to %1</source>
        <translation>Открыто подключение к %1</translation>
    </message>
    <message>
        <source>Connection closed</source>
        <translation>Подключение закрыто</translation>
    </message>
    <message>
        <source>Reconnecting.... Please wait.</source>
        <translation>Переподключение... Подождите.</translation>
    </message>
    <message>
        <source>Fatal communication error</source>
        <translation>Критическая ошибка связи</translation>
    </message>
    <message>
        <source>Reconnect attempt %1 of 10</source>
        <translation>Попытка переподключения %1 из 10</translation>
    </message>
    <message>
        <source>Reconnecting to %1</source>
        <translation>Переподключение к %1</translation>
    </message>
    <message>
        <source>Reconnection attempts exhausted</source>
        <translation>Попытки переподключения исчерпаны</translation>
    </message>
</context>
<context>
    <name>BoardWaiter</name>
    <message>
        <source>Stopped waiting for %1</source>
        <translation>Ожидание %1 прекращено</translation>
    </message>
    <message>
        <source>Waiting for %1 (up to %2 min)</source>
        <translation>Ожидание %1 (до %2 мин)</translation>
    </message>
</context>
<context>
    <name>CodeEditor</name>
    <message>
        <source>Discard the changes?</source>
        <translation>Отменить изменения?</translation>
    </message>
    <message>
        <source>Dialog</source>
        <translation>Диалог</translation>
    </message>
    <message>
        <source>Save As</source>
        <translation>Сохранить как</translation>
    </message>
    <message>
        <source>Close without Saving</source>
        <translation>Закрыть без сохранения</translation>
    </message>
    <message>
        <source>Save &amp;&amp; Upload</source>
        <translation>Сохранить &amp;&amp; загрузить</translation>
    </message>
    <message>
        <source>Cannot read %1: %2</source>
        <translation>Не удаётся прочитать %1: %2</translation>
    </message>
    <message>
        <source>Code Editor</source>
        <translation>Редактор кода</translation>
    </message>
    <message>
        <source>Looks like this is a binary file. Switching to read-only mode.</source>
        <translation>Похоже, это двоичный файл. Включён режим только для чтения.</translation>
    </message>
    <message>
        <source>Cannot write to %1: %2</source>
        <translation>Не удаётся записать в %1: %2</translation>
    </message>
    <message>
        <source>File %1 cannot be written</source>
        <translation>Не удаётся записать файл %1</translation>
    </message>
    <message>
        <source>The edited data is not a valid JSON document. Proceed?&lt;br&gt;Error: %1</source>
        <translation>Изменённые данные не являются корректным документом JSON. Продолжить?&lt;br&gt;Ошибка: %1</translation>
    </message>
</context>
<context>
    <name>ConnectionPopup</name>
    <message>
        <source>Board type</source>
        <translation>Тип платы</translation>
    </message>
    <message>
        <source>Baud rate</source>
        <translation>Скорость обмена</translation>
    </message>
    <message>
        <source>Fast transfers</source>
        <translation>Быстрая передача</translation>
    </message>
    <message>
        <source>Port, device path or ws://HOST</source>
        <translation>Порт, путь к устройству или ws://HOST</translation>
    </message>
    <message>
        <source>WebREPL password</source>
        <translation>Пароль WebREPL</translation>
    </message>
    <message>
        <source>The password set on the board with &quot;import webrepl_setup&quot;</source>
        <translation>Пароль, заданный на плате командой «import webrepl_setup»</translation>
    </message>
    <message>
        <source>Remember password</source>
        <translation>Запомнить пароль</translation>
    </message>
    <message>
        <source>Keep the password in the desktop&apos;s secret store, never in Pelkam&apos;s settings</source>
        <translation>Хранить пароль в хранилище секретов рабочего стола, а не в настройках Pelkam</translation>
    </message>
    <message>
        <source>Serial port, device path, WebREPL address (ws://HOST[:PORT]) or a serial port on another machine (rfc2217://HOST:PORT, socket://HOST:PORT)</source>
        <translation>Последовательный порт, путь к устройству, адрес WebREPL (ws://HOST[:PORT]) или последовательный порт на другой машине (rfc2217://HOST:PORT, socket://HOST:PORT)</translation>
    </message>
</context>
<context>
    <name>FileWorkflows</name>
    <message>
        <source>Rename</source>
        <translation>Переименование</translation>
    </message>
    <message>
        <source>New name of %1</source>
        <translation>Новое имя для %1</translation>
    </message>
    <message>
        <source>The name %1 cannot be used on the board</source>
        <translation>Имя %1 недопустимо на плате</translation>
    </message>
    <message>
        <source>%1 already exists</source>
        <translation>%1 уже существует</translation>
    </message>
    <message>
        <source>Upload File</source>
        <translation>Загрузка файла</translation>
    </message>
    <message>
        <source>This is an update package. Do you want to unpack it and upload its contents?</source>
        <translation>Это пакет обновления. Распаковать его и загрузить содержимое на плату?</translation>
    </message>
    <message>
        <source>Execute this file on the MC instead of uploading?</source>
        <translation>Выполнить этот файл на плате вместо загрузки?</translation>
    </message>
    <message>
        <source>Keep the subdirectory structure?</source>
        <translation>Сохранить структуру подпапок?</translation>
    </message>
    <message>
        <source>File&apos;s relative path is %1</source>
        <translation>Относительный путь файла: %1</translation>
    </message>
    <message>
        <source>If you choose to keep the directory structure, the file will be uploaded to
%1

If not, it will be uploaded to
%2</source>
        <translation>Если сохранить структуру папок, файл будет загружен в
%1

Если нет — в
%2</translation>
    </message>
    <message>
        <source>Download file</source>
        <translation>Скачивание файла</translation>
    </message>
    <message>
        <source>File %1 exists. Overwrite?</source>
        <translation>Файл %1 уже существует. Перезаписать?</translation>
    </message>
    <message>
        <source>Directory %1 must be empty in order to be removed</source>
        <translation>Чтобы удалить папку %1, она должна быть пустой</translation>
    </message>
    <message>
        <source>New Directory</source>
        <translation>Новая папка</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Имя</translation>
    </message>
    <message>
        <source>A directory with the same name already exists</source>
        <translation>Папка с таким именем уже существует</translation>
    </message>
    <message>
        <source>MC directory creation failure</source>
        <translation>Не удалось создать папку на плате</translation>
    </message>
</context>
<context>
    <name>MCDirModel</name>
    <message>
        <source>Name</source>
        <translation>Имя</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Размер</translation>
    </message>
</context>
<context>
    <name>PackageInstaller</name>
    <message>
        <source>Unsupported package type</source>
        <translation>Неподдерживаемый тип пакета</translation>
    </message>
    <message>
        <source>Package Upload</source>
        <translation>Загрузка пакета</translation>
    </message>
    <message>
        <source>A package is being uploaded. Please wait</source>
        <translation>Пакет уже загружается. Подождите</translation>
    </message>
    <message>
        <source>%1 is too large for a MicroPython board (%2 bytes). Abort</source>
        <translation>%1 слишком велик для платы MicroPython (%2 байт). Прервано</translation>
    </message>
    <message>
        <source>Package installation stopped: the MC is disconnected</source>
        <translation>Установка пакета остановлена: плата отключена</translation>
    </message>
    <message>
        <source>Loading upack for %1</source>
        <translation>Загрузка пакета upack: %1</translation>
    </message>
    <message>
        <source>UPack uploaded!</source>
        <translation>Пакет upack загружен!</translation>
    </message>
    <message>
        <source>Invalid package %1 - maybe not an upack?</source>
        <translation>Неверный пакет %1 — возможно, это не upack?</translation>
    </message>
    <message>
        <source>UPack is broken (cannot get %1). Abort</source>
        <translation>Пакет upack повреждён (не удаётся найти %1). Прервано</translation>
    </message>
    <message>
        <source>Uploading %1 from upack</source>
        <translation>Загрузка %1 из пакета upack</translation>
    </message>
    <message>
        <source>UPack is broken (cannot read %1). Abort</source>
        <translation>Пакет upack повреждён (не удаётся прочитать %1). Прервано</translation>
    </message>
    <message>
        <source>Cannot read ufw package: %1</source>
        <translation>Не удаётся прочитать пакет ufw: %1</translation>
    </message>
    <message>
        <source>Loading ufw from %1</source>
        <translation>Загрузка пакета ufw из %1</translation>
    </message>
    <message>
        <source>Uploading %1</source>
        <translation>Загрузка %1</translation>
    </message>
    <message>
        <source>Cannot read %1 whole: the package is truncated. Abort</source>
        <translation>Не удаётся прочитать %1 целиком: пакет обрезан. Прервано</translation>
    </message>
    <message>
        <source>UFW firmware package is for %1/%2 (%3)</source>
        <translation>Пакет прошивки UFW предназначен для %1/%2 (%3)</translation>
    </message>
    <message>
        <source>UFW firmware pack uploaded!</source>
        <translation>Пакет прошивки UFW загружен!</translation>
    </message>
</context>
<context>
    <name>PelkamWindow</name>
    <message>
        <source>Cancel</source>
        <translation>Отмена</translation>
    </message>
    <message>
        <source>Stop the running transfer after the current chunk</source>
        <translation>Остановить передачу после текущего блока</translation>
    </message>
    <message>
        <source>Board folder: %1</source>
        <translation>Папка на плате: %1</translation>
    </message>
    <message>
        <source>Rename</source>
        <translation>Переименовать</translation>
    </message>
    <message>
        <source>Rename a board file or folder</source>
        <translation>Переименовать файл или папку на плате</translation>
    </message>
    <message>
        <source>Refresh</source>
        <translation>Обновить</translation>
    </message>
    <message>
        <source>List the board folder again</source>
        <translation>Заново прочитать папку платы</translation>
    </message>
    <message>
        <source>Board</source>
        <translation>Плата</translation>
    </message>
    <message>
        <source>File System</source>
        <translation>Файловая система</translation>
    </message>
    <message>
        <source>Terminal</source>
        <translation>Терминал</translation>
    </message>
    <message>
        <source>Connect</source>
        <translation>Подключить</translation>
    </message>
    <message>
        <source>Exit</source>
        <translation>Выход</translation>
    </message>
    <message>
        <source>About</source>
        <translation>О программе</translation>
    </message>
    <message>
        <source>%p% (%v of %m bytes)</source>
        <translation>%p% (%v из %m байт)</translation>
    </message>
    <message>
        <source>Run on the MC</source>
        <translation>Выполнить на плате</translation>
    </message>
    <message>
        <source>Upload</source>
        <translation>Загрузить</translation>
    </message>
    <message>
        <source>Synchronize</source>
        <translation>Синхронизировать</translation>
    </message>
    <message>
        <source>Edit</source>
        <translation>Редактировать</translation>
    </message>
    <message>
        <source>Download</source>
        <translation>Скачать</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>Удалить</translation>
    </message>
    <message>
        <source>Upload the selected file</source>
        <translation>Загрузить выбранный файл на плату</translation>
    </message>
    <message>
        <source>Download a file from the MC</source>
        <translation>Скачать файл с платы</translation>
    </message>
    <message>
        <source>Sync</source>
        <translation>Синхронизация</translation>
    </message>
    <message>
        <source>Sync files between the PC and the MC</source>
        <translation>Синхронизировать файлы между ПК и платой</translation>
    </message>
    <message>
        <source>Abort</source>
        <translation>Прервать</translation>
    </message>
    <message>
        <source>Stop the virtual machine</source>
        <translation>Остановить виртуальную машину</translation>
    </message>
    <message>
        <source>Reset</source>
        <translation>Сброс</translation>
    </message>
    <message>
        <source>Reset the MC</source>
        <translation>Сбросить плату</translation>
    </message>
    <message>
        <source>DFU</source>
        <translation>DFU</translation>
    </message>
    <message>
        <source>Put the MC into the DFU mode</source>
        <translation>Перевести плату в режим DFU</translation>
    </message>
    <message>
        <source>Remove a file from the MC</source>
        <translation>Удалить файл с платы</translation>
    </message>
    <message>
        <source>Edit a MC file</source>
        <translation>Редактировать файл на плате</translation>
    </message>
    <message>
        <source>Preferences</source>
        <translation>Настройки</translation>
    </message>
    <message>
        <source>Upload Package</source>
        <translation>Загрузить пакет</translation>
    </message>
    <message>
        <source>Upload a package to the MC</source>
        <translation>Загрузить пакет на плату</translation>
    </message>
    <message>
        <source>New Directory</source>
        <translation>Новая папка</translation>
    </message>
    <message>
        <source>Create a new directory in the MC flash</source>
        <translation>Создать папку во флеш-памяти платы</translation>
    </message>
    <message>
        <source>New File</source>
        <translation>Новый файл</translation>
    </message>
    <message>
        <source>Create a new file in the MC flash</source>
        <translation>Создать файл во флеш-памяти платы</translation>
    </message>
    <message>
        <source>Launch</source>
        <translation>Запустить</translation>
    </message>
    <message>
        <source>Launch the virtual machine</source>
        <translation>Запустить виртуальную машину</translation>
    </message>
    <message>
        <source>Syslog</source>
        <translation>Журнал</translation>
    </message>
    <message>
        <source>Clear Syslog</source>
        <translation>Очистить журнал</translation>
    </message>
    <message>
        <source>Clear Terminal</source>
        <translation>Очистить терминал</translation>
    </message>
    <message>
        <source>Connect to a UPY device or disconnect from one</source>
        <translation>Подключиться к устройству MicroPython или отключиться от него</translation>
    </message>
    <message>
        <source>Reset MC</source>
        <translation>Сброс платы</translation>
    </message>
    <message>
        <source>Reset the MC after establishing a connection</source>
        <translation>Сбрасывать плату после подключения</translation>
    </message>
    <message>
        <source>Monitor Only</source>
        <translation>Только наблюдение</translation>
    </message>
    <message>
        <source>Do not stop the virtual machine after establishing a connection</source>
        <translation>Не останавливать виртуальную машину после подключения</translation>
    </message>
    <message>
        <source>Automatic Reconnect</source>
        <translation>Автопереподключение</translation>
    </message>
    <message>
        <source>Automatically reconnect if the connection is aborted</source>
        <translation>Автоматически переподключаться при обрыве связи</translation>
    </message>
    <message>
        <source>About Qt</source>
        <translation>О Qt</translation>
    </message>
    <message>
        <source>Check for Updates</source>
        <translation>Проверить обновления</translation>
    </message>
    <message>
        <source>File</source>
        <translation>Файл</translation>
    </message>
    <message>
        <source>Save Log</source>
        <translation>Сохранить журнал</translation>
    </message>
    <message>
        <source>Help</source>
        <translation>Справка</translation>
    </message>
    <message>
        <source>Connection</source>
        <translation>Подключение</translation>
    </message>
    <message>
        <source>Actions</source>
        <translation>Действия</translation>
    </message>
    <message>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;Select a directory (PC)&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;Выбрать папку (ПК)&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</translation>
    </message>
    <message>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;Goto parent directory (PC)&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;Перейти в родительскую папку (ПК)&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</translation>
    </message>
    <message>
        <source>An MC operation is in progress. Abort and quit?</source>
        <translation>Идёт операция с платой. Прервать её и выйти?</translation>
    </message>
    <message>
        <source>Pelkam Board Toolkit v%1</source>
        <translation>Pelkam — инструменты для плат, версия %1</translation>
    </message>
    <message>
        <source>Developed by: Tarvel</source>
        <translation>Разработчик: Tarvel</translation>
    </message>
    <message>
        <source>Copyright %1 Tarvel. All rights reserved.</source>
        <translation>© %1 Tarvel. Все права защищены.</translation>
    </message>
    <message>
        <source>3rd party software:</source>
        <translation>Сторонние компоненты:</translation>
    </message>
    <message>
        <source>Select Directory</source>
        <translation>Выбор папки</translation>
    </message>
    <message>
        <source>Updates come from the system&apos;s package manager</source>
        <translation>Обновления приходят через системный менеджер пакетов</translation>
    </message>
    <message>
        <source>Select package</source>
        <translation>Выбор пакета</translation>
    </message>
    <message>
        <source>Zarno pack files (*.upack);; UFW firmware updates (*.ufw)</source>
        <translation>Пакеты Zarno (*.upack);; Обновления прошивки UFW (*.ufw)</translation>
    </message>
    <message>
        <source>Save Log As</source>
        <translation>Сохранить журнал как</translation>
    </message>
    <message>
        <source>Log files (*.log)</source>
        <translation>Файлы журнала (*.log)</translation>
    </message>
    <message>
        <source>Saved to %1</source>
        <translation>Сохранено в %1</translation>
    </message>
    <message>
        <source>Cannot save to %1: %2</source>
        <translation>Не удаётся сохранить в %1: %2</translation>
    </message>
    <message>
        <source>Edit</source>
        <comment>menu</comment>
        <translation>Правка</translation>
    </message>
    <message>
        <source>Sync on Save</source>
        <translation>Синхронизация при сохранении</translation>
    </message>
    <message>
        <source>Upload each file saved in the PC folder into the listed board folder</source>
        <translation>Загружать каждый файл, сохранённый в папке ПК, в открытую папку платы</translation>
    </message>
    <message>
        <source>Board: %1 free of %2</source>
        <translation>Плата: свободно %1 из %2</translation>
    </message>
    <message>
        <source>Plotter</source>
        <translation>График</translation>
    </message>
    <message>
        <source>Show the numbers the board prints as a graph</source>
        <translation>Показать числа, которые печатает плата, в виде графика</translation>
    </message>
    <message>
        <source>View</source>
        <translation>Вид</translation>
    </message>
    <message>
        <source>No secret store took the password (%1): it is asked again next time</source>
        <translation>Хранилище секретов не приняло пароль (%1): в следующий раз он будет запрошен снова</translation>
    </message>
    <message>
        <source>The operation failed, so the file actions stay off: Abort (Ctrl+X) brings the board back to its prompt (Preferences can keep them on)</source>
        <translation>Операция не удалась, поэтому действия с файлами недоступны: «Прервать» (Ctrl+X) вернёт плату к приглашению (в настройках их можно оставлять доступными)</translation>
    </message>
    <message>
        <source>Show the program&apos;s own commands</source>
        <translation>Показывать команды самой программы</translation>
    </message>
    <message>
        <source>Show in the Syslog what Pelkam itself sends the board and the board&apos;s echo of it</source>
        <translation>Показывать в журнале то, что Pelkam сам отправляет плате, и эхо платы</translation>
    </message>
    <message>
        <source>Waiting for %1</source>
        <translation>Ожидание %1</translation>
    </message>
</context>
<context>
    <name>PlotterView</name>
    <message>
        <source>Pause</source>
        <translation>Пауза</translation>
    </message>
    <message>
        <source>Keep the graph still; the numbers keep coming in</source>
        <translation>Остановить график; числа продолжают поступать</translation>
    </message>
    <message>
        <source>Clear</source>
        <translation>Очистить</translation>
    </message>
    <message>
        <source>Seconds</source>
        <translation>Секунды</translation>
    </message>
    <message>
        <source>Samples</source>
        <translation>Отсчёты</translation>
    </message>
    <message>
        <source>The X axis: seconds since the first point, or the number of each line</source>
        <translation>Ось X: секунды с первой точки или номер каждой строки</translation>
    </message>
    <message>
        <source>Automatic Y range</source>
        <translation>Автоматический диапазон Y</translation>
    </message>
    <message>
        <source>Lowest value shown</source>
        <translation>Наименьшее показываемое значение</translation>
    </message>
    <message>
        <source>Highest value shown</source>
        <translation>Наибольшее показываемое значение</translation>
    </message>
    <message>
        <source>Points kept:</source>
        <translation>Хранить точек:</translation>
    </message>
    <message>
        <source>How many of the last points of each series are kept and shown</source>
        <translation>Сколько последних точек каждого ряда хранится и показывается</translation>
    </message>
    <message>
        <source>Export CSV</source>
        <translation>Экспорт CSV</translation>
    </message>
    <message>
        <source>CSV files (*.csv)</source>
        <translation>Файлы CSV (*.csv)</translation>
    </message>
    <message>
        <source>Export PNG</source>
        <translation>Экспорт PNG</translation>
    </message>
    <message>
        <source>PNG images (*.png)</source>
        <translation>Изображения PNG (*.png)</translation>
    </message>
    <message>
        <source>The plotter shows %1 series at most: numbers of further series are skipped</source>
        <translation>График показывает не более %1 рядов: числа следующих рядов пропускаются</translation>
    </message>
    <message>
        <source>Resume</source>
        <translation>Продолжить</translation>
    </message>
    <message>
        <source>Cannot save to %1: %2</source>
        <translation>Не удалось сохранить в %1: %2</translation>
    </message>
    <message>
        <source>Saved to %1</source>
        <translation>Сохранено в %1</translation>
    </message>
    <message>
        <source>the image could not be written</source>
        <translation>не удалось записать изображение</translation>
    </message>
</context>
<context>
    <name>Preferences</name>
    <message>
        <source>Unlimited</source>
        <translation>Без ограничения</translation>
    </message>
    <message>
        <source>Terminal lines kept:</source>
        <translation>Строк в терминале:</translation>
    </message>
    <message>
        <source>Preferences</source>
        <translation>Настройки</translation>
    </message>
    <message>
        <source>Interface</source>
        <translation>Интерфейс</translation>
    </message>
    <message>
        <source>Language:</source>
        <translation>Язык:</translation>
    </message>
    <message>
        <source>Colors:</source>
        <translation>Цвета:</translation>
    </message>
    <message>
        <source>Light</source>
        <translation>Светлые</translation>
    </message>
    <message>
        <source>Dark</source>
        <translation>Тёмные</translation>
    </message>
    <message>
        <source>MC File List</source>
        <translation>Список файлов платы</translation>
    </message>
    <message>
        <source>Edit File</source>
        <translation>Редактировать файл</translation>
    </message>
    <message>
        <source>Download File</source>
        <translation>Скачать файл</translation>
    </message>
    <message>
        <source>Double click:</source>
        <translation>Двойной щелчок:</translation>
    </message>
    <message>
        <source>Default directory (STM):</source>
        <translation>Папка по умолчанию (STM):</translation>
    </message>
    <message>
        <source>Default directory (ESP):</source>
        <translation>Папка по умолчанию (ESP):</translation>
    </message>
    <message>
        <source>Transfer</source>
        <translation>Передача</translation>
    </message>
    <message>
        <source>Default</source>
        <translation>По умолчанию</translation>
    </message>
    <message>
        <source>Chunk Size:</source>
        <translation>Размер блока:</translation>
    </message>
    <message>
        <source>Keep directory structure</source>
        <translation>Сохранять структуру папок</translation>
    </message>
    <message>
        <source>Upload to the root directory</source>
        <translation>Загружать в корневую папку</translation>
    </message>
    <message>
        <source>Always ask</source>
        <translation>Всегда спрашивать</translation>
    </message>
    <message>
        <source>Upload File:</source>
        <translation>Загрузка файла:</translation>
    </message>
    <message>
        <source>Ask to execute a script</source>
        <translation>Предлагать выполнить скрипт</translation>
    </message>
    <message>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-weight:600; color:#ef2929;&quot;&gt;* Changing the color theme requires a restart&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-weight:600; color:#ef2929;&quot;&gt;* Смена цветовой темы вступит в силу после перезапуска&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</translation>
    </message>
    <message>
        <source>Environment</source>
        <translation>Среда</translation>
    </message>
    <message>
        <source>Spaces</source>
        <translation>Пробелы</translation>
    </message>
    <message>
        <source>Tabs</source>
        <translation>Табуляция</translation>
    </message>
    <message>
        <source>Tab policy:</source>
        <translation>Отступы:</translation>
    </message>
    <message>
        <source>Tab size:</source>
        <translation>Ширина табуляции:</translation>
    </message>
    <message>
        <source>Automatic indentation</source>
        <translation>Автоматические отступы</translation>
    </message>
    <message>
        <source>Automatic parentheses completion</source>
        <translation>Автоматически закрывать скобки</translation>
    </message>
    <message>
        <source>Word wrap</source>
        <translation>Перенос по словам</translation>
    </message>
    <message>
        <source>Visualize whitespace</source>
        <translation>Показывать пробельные символы</translation>
    </message>
    <message>
        <source>Editor</source>
        <translation>Редактор</translation>
    </message>
    <message>
        <source>System</source>
        <translation>Системный</translation>
    </message>
    <message>
        <source>Change Language</source>
        <translation>Смена языка</translation>
    </message>
    <message>
        <source>Language will be changed after an application restart.</source>
        <translation>Язык сменится после перезапуска приложения.</translation>
    </message>
    <message>
        <source>Fast transfers</source>
        <translation>Быстрая передача</translation>
    </message>
    <message>
        <source>Keep the file actions on after a failed operation</source>
        <translation>Оставлять действия с файлами доступными после неудачной операции</translation>
    </message>
    <message>
        <source>Off: after a failed transfer the file actions stay off until Abort brings the board back to its prompt</source>
        <translation>Выключено: после неудачной передачи действия с файлами недоступны, пока «Прервать» не вернёт плату к приглашению</translation>
    </message>
    <message>
        <source>Off</source>
        <translation>Выключено</translation>
    </message>
    <message>
        <source> min</source>
        <translation> мин</translation>
    </message>
    <message>
        <source>After the ten reconnect attempts, go on looking for the same board (USB serial number, port or ws:// address) this long, and connect when it is back</source>
        <translation>После десяти попыток переподключения продолжать искать ту же плату (серийный номер USB, порт или адрес ws://) столько времени и подключиться, когда она появится</translation>
    </message>
    <message>
        <source>Keep waiting for the board:</source>
        <translation>Продолжать ждать плату:</translation>
    </message>
    <message>
        <source>Paste the board scripts once, skip the idle waits, send file bytes raw over a serial line and compressible files deflated, and write each upload beside its target until it checks out: a first copy of a project is many times faster. Leave it off for firmware whose REPL misbehaves without pauses.</source>
        <translation>Вставлять скрипты платы один раз, пропускать паузы ожидания, передавать байты файлов по последовательной линии как есть, а сжимаемые файлы в сжатом виде, и записывать каждую загрузку рядом с целевым файлом до его проверки: первое копирование проекта становится во много раз быстрее. Не включайте для прошивок, чей REPL сбоит без пауз.</translation>
    </message>
</context>
<context>
    <name>QObject</name>
    <message>
        <source>%1, line %2: &quot;%3&quot; is not a valid pattern</source>
        <translation>%1, строка %2: «%3» — недопустимый шаблон</translation>
    </message>
</context>
<context>
    <name>RemoteEdit</name>
    <message>
        <source>Cannot create temporary file at %1</source>
        <translation>Не удаётся создать временный файл %1</translation>
    </message>
    <message>
        <source>New File</source>
        <translation>Новый файл</translation>
    </message>
    <message>
        <source>A file is already being edited</source>
        <translation>Уже редактируется другой файл</translation>
    </message>
    <message>
        <source>File name:</source>
        <translation>Имя файла:</translation>
    </message>
    <message>
        <source>The file name is invalid</source>
        <translation>Недопустимое имя файла</translation>
    </message>
    <message>
        <source>A file with the same name already exists</source>
        <translation>Файл с таким именем уже существует</translation>
    </message>
    <message>
        <source>Edit</source>
        <translation>Редактирование</translation>
    </message>
    <message>
        <source>Select a MC file to edit</source>
        <translation>Выберите файл на плате для редактирования</translation>
    </message>
    <message>
        <source>The file cannot be uploaded. Save it?</source>
        <translation>Не удаётся загрузить файл на плату. Сохранить его?</translation>
    </message>
    <message>
        <source>Another MC operation is running. Upload again when it has finished</source>
        <translation>Выполняется другая операция с платой. Загрузите файл снова, когда она завершится</translation>
    </message>
</context>
<context>
    <name>ReplLine</name>
    <message>
        <source>Type a line for the board and press Enter</source>
        <translation>Введите строку для платы и нажмите Enter</translation>
    </message>
    <message>
        <source>Connect to a board to type here</source>
        <translation>Подключитесь к плате, чтобы вводить здесь</translation>
    </message>
    <message>
        <source>Pelkam drives the board: press Launch (or connect with Monitor Only) to type here</source>
        <translation>Плата под управлением Pelkam: нажмите «Запустить» (или подключитесь в режиме «Только наблюдение»), чтобы вводить здесь</translation>
    </message>
</context>
<context>
    <name>SyncConfigurationDialog</name>
    <message>
        <source>Synchronization</source>
        <translation>Синхронизация</translation>
    </message>
    <message>
        <source>Source:</source>
        <translation>Источник:</translation>
    </message>
    <message>
        <source>Destination:</source>
        <translation>Назначение:</translation>
    </message>
    <message>
        <source>Recursively</source>
        <translation>Рекурсивно</translation>
    </message>
    <message>
        <source>Upload missing files</source>
        <translation>Загружать отсутствующие файлы</translation>
    </message>
    <message>
        <source>This will upload files from &quot;Source&quot; (PC) directory to the &quot;Destination&quot; (MC) directory whose MD5 sums differ.</source>
        <translation>Из папки «Источник» (ПК) в папку «Назначение» (плата) будут загружены файлы, у которых различаются суммы MD5.</translation>
    </message>
    <message>
        <source>Create missing folders</source>
        <translation>Создавать недостающие папки</translation>
    </message>
    <message>
        <source>Delete files the PC lacks</source>
        <translation>Удалять файлы, которых нет на ПК</translation>
    </message>
    <message>
        <source>Preview</source>
        <translation>Предпросмотр</translation>
    </message>
    <message>
        <source>upload %1</source>
        <translation>загрузить %1</translation>
    </message>
    <message>
        <source>delete %1</source>
        <translation>удалить %1</translation>
    </message>
    <message>
        <source>Nothing to do: the board folder is up to date</source>
        <translation>Делать нечего: папка платы актуальна</translation>
    </message>
    <message>
        <source>The comparison did not finish: see the log</source>
        <translation>Сравнение не завершено: см. журнал</translation>
    </message>
</context>
<context>
    <name>Synchronizer</name>
    <message>
        <source>Synchronization aborted - file upload failure</source>
        <translation>Синхронизация прервана: ошибка загрузки файла</translation>
    </message>
    <message>
        <source>Synchronization aborted: the MC is disconnected</source>
        <translation>Синхронизация прервана: плата отключена</translation>
    </message>
    <message>
        <source>Synchronization failed</source>
        <translation>Синхронизация не удалась</translation>
    </message>
    <message>
        <source>Syncronization aborted: hash computation failure</source>
        <translation>Синхронизация прервана: ошибка вычисления хеша</translation>
    </message>
    <message>
        <source>Skipping %1 - destination file is missing</source>
        <translation>Пропуск %1: файла нет на плате</translation>
    </message>
    <message>
        <source>Skipping %1 - file is not readable</source>
        <translation>Пропуск %1: файл не читается</translation>
    </message>
    <message>
        <source>Skipping %1 - files are identical</source>
        <translation>Пропуск %1: файлы совпадают</translation>
    </message>
    <message>
        <source>MC does not support MD5 computation - switched to SHA1</source>
        <translation>Плата не поддерживает MD5, используется SHA1</translation>
    </message>
    <message>
        <source>Synchronized files from folders %1/ and %2</source>
        <translation>Синхронизированы файлы папок %1/ и %2</translation>
    </message>
    <message>
        <source>Skipping %1 - a link to a folder is not followed</source>
        <translation>Пропуск %1 — ссылки на папки не просматриваются</translation>
    </message>
    <message>
        <source>Skipping %1 - the link leads nowhere</source>
        <translation>Пропуск %1 — ссылка никуда не ведёт</translation>
    </message>
    <message>
        <source>Skipping %1 - the link leads out of the folder</source>
        <translation>Пропуск %1 — ссылка ведёт за пределы папки</translation>
    </message>
    <message>
        <source>%1 is missing</source>
        <translation>%1 отсутствует</translation>
    </message>
    <message>
        <source>%1 cannot be read</source>
        <translation>%1 не читается</translation>
    </message>
    <message>
        <source>%1 is empty</source>
        <translation>%1 пуста</translation>
    </message>
    <message>
        <source>%1 has lines that are not valid</source>
        <translation>В %1 есть недопустимые строки</translation>
    </message>
    <message>
        <source>Nothing deleted: %1</source>
        <translation>Ничего не удалено: %1</translation>
    </message>
    <message>
        <source>Skipping %1 - its PC folder cannot be read or is a link</source>
        <translation>Пропуск %1 — папка на ПК не читается или является ссылкой</translation>
    </message>
    <message>
        <source>Synchronization aborted - delete pass failure</source>
        <translation>Синхронизация прервана - сбой при удалении</translation>
    </message>
    <message>
        <source>Nothing deleted: the board did not say which file systems it mounts</source>
        <translation>Ничего не удалено: плата не сообщила, какие файловые системы смонтированы</translation>
    </message>
    <message>
        <source>%1/ is missing on the board: the sync stops there (tick Create missing folders)</source>
        <translation>%1/ нет на плате: синхронизация остановится там (отметьте «Создавать недостающие папки»)</translation>
    </message>
    <message>
        <source>Nothing more deleted: the board did not list %1</source>
        <translation>Больше ничего не удалено: плата не выдала список %1</translation>
    </message>
</context>
<context>
    <name>TcpSerialTransport</name>
    <message>
        <source>%1 is not a network serial port (rfc2217://HOST:PORT or socket://HOST:PORT)</source>
        <translation>%1 — не сетевой последовательный порт (rfc2217://HOST:PORT или socket://HOST:PORT)</translation>
    </message>
    <message>
        <source>no answer within %1 s</source>
        <translation>нет ответа в течение %1 с</translation>
    </message>
    <message>
        <source>The connection to %1 closed: %2</source>
        <translation>Соединение с %1 закрыто: %2</translation>
    </message>
    <message>
        <source> (the server said &quot;%1&quot;)</source>
        <translation> (сервер ответил: «%1»)</translation>
    </message>
</context>
<context>
    <name>Transports</name>
    <message>
        <source>%1 is not a WebREPL address (ws://HOST[:PORT])</source>
        <translation>%1 — не адрес WebREPL (ws://HOST[:PORT])</translation>
    </message>
    <message>
        <source>%1 is not a network serial port (rfc2217://HOST:PORT)</source>
        <translation>%1 — не сетевой последовательный порт (rfc2217://HOST:PORT)</translation>
    </message>
    <message>
        <source>%1 is not a network serial port (socket://HOST:PORT)</source>
        <translation>%1 — не сетевой последовательный порт (socket://HOST:PORT)</translation>
    </message>
</context>
<context>
    <name>WatchSession</name>
    <message>
        <source>Waiting for %1 (%2)</source>
        <translation>Ожидание %1 (%2)</translation>
    </message>
    <message>
        <source>Trying again: %1</source>
        <translation>Новая попытка: %1</translation>
    </message>
    <message>
        <source>Not synced yet: %1</source>
        <translation>Ещё не синхронизировано: %1</translation>
    </message>
    <message>
        <source>%1 is back</source>
        <translation>%1 снова на месте</translation>
    </message>
</context>
<context>
    <name>WebReplTransport</name>
    <message>
        <source>%1 is not a WebREPL address (ws://HOST[:PORT])</source>
        <translation>%1 — не адрес WebREPL (ws://HOST[:PORT])</translation>
    </message>
    <message>
        <source>the board did not answer in time</source>
        <translation>плата не ответила вовремя</translation>
    </message>
    <message>
        <source>the board refused the WebREPL password</source>
        <translation>плата отклонила пароль WebREPL</translation>
    </message>
    <message>
        <source>the board asks for a WebREPL password and none was given</source>
        <translation>плата запрашивает пароль WebREPL, а он не задан</translation>
    </message>
    <message>
        <source>The board accepts one WebREPL client at a time</source>
        <translation>Плата принимает только одного клиента WebREPL одновременно</translation>
    </message>
    <message>
        <source>the board closed the connection</source>
        <translation>плата закрыла соединение</translation>
    </message>
    <message>
        <source>The WebREPL connection closed</source>
        <translation>Соединение WebREPL закрыто</translation>
    </message>
    <message>
        <source>bytes that are not UTF-8 text cannot be sent over WebREPL</source>
        <translation>байты, не являющиеся текстом UTF-8, нельзя отправить через WebREPL</translation>
    </message>
    <message>
        <source>the WebREPL password is longer than the 9 bytes a board keeps: it was not sent</source>
        <translation>пароль WebREPL длиннее 9 байт, которые хранит плата: он не отправлен</translation>
    </message>
    <message>
        <source>DFU is not possible over WebREPL: connect the board with a USB cable</source>
        <translation>DFU невозможен через WebREPL: подключите плату кабелем USB</translation>
    </message>
    <message>
        <source>the path is too long for WebREPL&apos;s file protocol</source>
        <translation>путь слишком длинный для файлового протокола WebREPL</translation>
    </message>
    <message>
        <source>the board does not answer WebREPL&apos;s file protocol</source>
        <translation>плата не отвечает на файловый протокол WebREPL</translation>
    </message>
    <message>
        <source>the board refused the file (status %1)</source>
        <translation>плата отказалась принять файл (код %1)</translation>
    </message>
    <message>
        <source>no answer from the board after the file&apos;s data</source>
        <translation>нет ответа платы после данных файла</translation>
    </message>
</context>
<context>
    <name>main</name>
    <message>
        <source>Offer this device path in the connection popup.</source>
        <translation>Предлагать этот путь к устройству в окне подключения.</translation>
    </message>
    <message>
        <source>Tarvel micropython powered boards management utility.</source>
        <translation>Утилита Tarvel для управления платами на MicroPython.</translation>
    </message>
    <message>
        <source>Reset all settings to their default value.</source>
        <translation>Сбросить все настройки к значениям по умолчанию.</translation>
    </message>
    <message>
        <source>Set UI language to &lt;lang&gt;.</source>
        <translation>Выбрать язык интерфейса &lt;lang&gt;.</translation>
    </message>
</context>
</TS>
