// Lists the first page of a user's inbox and opens its first message.
//   KORVANE_LIBRARY=.../libkorvane.so node list_mail.js INSTALLATION USER [SERVER]
const koffi = require('koffi');
const c = koffi.load(process.env.KORVANE_LIBRARY || 'libkorvane.so.0');

koffi.struct('Value', {name: 'str', type: 'int32', by_reference: 'int32', integer: 'int64',
  number: 'double', text: 'void *', text_length: 'int64', object: 'uint64'});
koffi.struct('KError', {number: 'int32', source: koffi.array('char', 64), description: koffi.array('char', 448)});
const make = c.func('int32 korvane_create(str name, _Out_ uint64 *object, _Out_ KError *error)');
const open = c.func('int32 korvane_connect(str url, _Out_ uint64 *object, _Out_ KError *error)');
const member = '(uint64 object, str member, _Inout_ Value *arguments, int32 count, _Out_ Value *result, _Out_ KError *error)';
const [read, call] = [c.func('int32 korvane_get' + member), c.func('int32 korvane_call' + member)];
const write = c.func('int32 korvane_let(uint64 object, str member, Value *value, _Out_ KError *error)');

function check(status, error) {
  if (status) throw new Error(`${error.source}: ${error.description} (${error.number})`);
}
function pack(given) { // a JavaScript value as an any-value; a Ref receives a result
  const value = {name: null, type: 0, by_reference: 0, integer: 0, number: 0, text: null, text_length: 0, object: 0};
  if (given instanceof Ref) { value.by_reference = 1; given = given.value; }
  if (typeof given === 'boolean') Object.assign(value, {type: 2, integer: Number(given)});
  else if (typeof given === 'number') Object.assign(value, {type: 3, integer: given});
  else if (typeof given === 'string') Object.assign(value, {type: 5, text: Buffer.from(given + '\0'), text_length: Buffer.byteLength(given)});
  else if (given instanceof Instance) Object.assign(value, {type: 6, object: given.handle});
  return value;
}
function unpack(value) {
  if (value.type === 2) return value.integer !== 0;
  if (value.type === 3) return Number(value.integer);
  if (value.type === 5) return koffi.decode(value.text, 'char', Number(value.text_length));
  return value.type === 6 && value.object ? new Instance(value.object) : null;
}
class Ref { constructor(value) { this.value = value; } }
class Instance {
  constructor(handle) { this.handle = handle; }
  run(how, name, ...given) {
    const [values, result, error] = [given.map(pack), {}, {}];
    check(how(this.handle, name, values, values.length, result, error), error);
    given.forEach((one, i) => { if (one instanceof Ref) one.value = unpack(values[i]); });
    return unpack(result);
  }
  get(name, ...given) { return this.run(read, name, ...given); }
  call(name, ...given) { return this.run(call, name, ...given); }
  set(name, value) { const error = {}; check(write(this.handle, name, pack(value), error), error); }
}
function from(how, argument) { const [handle, error] = [[0], {}]; check(how(argument, handle, error), error); return new Instance(handle[0]); }

const boss = from(make, 'BossObject'), web = from(make, 'WebInterface');
if (!boss.call('Init', Number(process.argv[2] || 1))) throw new Error('settings: ' + boss.get('GetLastError'));
web.set('ConnDataBase', from(open, boss.get('DbConnectionString')));
web.set('UserId', Number(process.argv[3] || 1));
if (!web.call('Init', boss)) throw new Error('account: ' + web.get('GetLastError'));
const [pages, mails, text] = [new Ref(0), new Ref(0), new Ref('')];
const page = web.call('GetListMessagesInBox', 1, Number(process.argv[4] || -1), true, false, '', false, 0, 1, 1, pages, mails);
console.log(`Page 1 of ${pages.value}, ${mails.value} messages`);
for (let i = 1; i <= page.get('Count'); i++) { const m = page.get('ItemIndex', i); console.log(m.get('Id'), m.get('ReceivedDate'), m.get('FromName'), m.get('Subject', 0)); }
const message = page.get('Count') ? web.call('GetMessage', page.get('ItemIndex', 1).get('Id')) : null;
if (message && message.call('MessageBody', text, 1, 0)) console.log('\n' + message.get('Subject', 0) + '\n\n' + text.value);
