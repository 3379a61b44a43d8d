// What this browser keeps for a user, beyond this tab unless it denies the page its storage.
const keptHere = new Map();

export function memoryOf(user, name) {
  const key = `${user}:${name}`;
  return {
    get() {
      try {
        return keptHere.get(key) ?? localStorage.getItem(key);
      } catch {
        return null;
      }
    },
    set(value) {
      try {
        localStorage.setItem(key, value);
      } catch {
        keptHere.set(key, value);
      }
    },
  };
}
