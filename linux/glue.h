/* SPDX-License-Identifier: GPL-2.0 */
/* The functions of glue.c, as both sides see them. */
#ifndef TARN_LINUX_GLUE_H
#define TARN_LINUX_GLUE_H

#ifdef __cplusplus
extern "C" {
#endif

struct kmem_cache;
struct sk_buff;

unsigned int tarn_k_preempt_count(void);
const void *tarn_k_current(void);
void tarn_k_local_bh_disable(void);
void tarn_k_local_bh_enable(void);
void tarn_k_rwlock_init(void *lock, const char *name, void *key);
int tarn_k_rwlock_is_held(const void *lock);
void tarn_k_lockdep_warn(const char *file, int line);
void tarn_k_ratelimit_init(void *state, int interval, int burst);
int tarn_k_ratelimit_try_store(void *state, int *word, int value);
void tarn_k_bug(const char *file, int line);
unsigned int tarn_k_skb_tailroom(const struct sk_buff *skb);
int tarn_k_skb_cloned(const struct sk_buff *skb);
void tarn_k_skb_reserve(struct sk_buff *skb, unsigned int length);
void tarn_k_skb_orphan(struct sk_buff *skb);
void tarn_k_consume_skb(struct sk_buff *skb);
void tarn_k_work_init(void *work, void (*run)(void *work));
int tarn_k_schedule_work_unbound(void *work);
void tarn_k_mutex_init(void *lock, const char *name, void *key);
void tarn_k_mutex_lock(void *lock);
void tarn_k_mutex_unlock(void *lock);
struct kmem_cache *tarn_k_kmem_cache_create(const char *name, unsigned int size, unsigned int align,
					    unsigned int flags, void (*constructor)(void *object));

/* Of words that each CPU has for itself. */
void tarn_k_this_cpu_add(unsigned int *word, unsigned int more);
unsigned int tarn_k_percpu_sum(const unsigned int *word);
unsigned long long tarn_k_this_cpu_add_return(void *word, unsigned long long more);
unsigned long long tarn_k_this_cpu_read(void *word);
void tarn_k_this_cpu_write(void *word, unsigned long long value);

#ifdef __cplusplus
}
#endif

#endif
